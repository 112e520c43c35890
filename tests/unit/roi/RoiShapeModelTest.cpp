// Geometry of one ROI as an editor changes it, checked against plain rotation matrices computed here
// in double precision. Coordinates are kept in single precision, so positions agree to 2e-3 pixels.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "roi/RoiShapeModel.h"

using orv::RoiShapeModel;

namespace {

// Clockwise on the image (y downwards) by the given degrees.
QPointF turned(QPointF const& p, double degrees)
{
    double const t = degrees * M_PI / 180.0;
    return QPointF(p.x() * std::cos(t) - p.y() * std::sin(t), p.x() * std::sin(t) + p.y() * std::cos(t));
}

void expectNear(QPointF const& actual, QPointF const& expected)
{
    EXPECT_LT(QLineF(actual, expected).length(), 2e-3)
        << actual.x() << "," << actual.y() << " instead of " << expected.x() << "," << expected.y();
}

RoiShapeModel turnedShape(int type, QSizeF size, double angle)
{
    RoiShapeModel shape;
    shape.setData(RoiShapeModel::TypeRole, type);
    shape.setData(RoiShapeModel::CenterRole, QPointF(100, 90));
    shape.setData(RoiShapeModel::SizeRole, size);
    shape.setData(RoiShapeModel::AngleRole, float(angle));
    return shape;
}

// The points that fix a shape: a rectangle's corners, a turned shape's corners (an ellipse's are
// those of the rectangle it fills), a polygon's vertices.
QPolygonF outline(RoiShapeModel const& shape)
{
    if (shape.getType() == RoiShapeModel::AxisRect)
        return QPolygonF(shape.data(RoiShapeModel::RectRole).toRectF());
    if (shape.getType() == RoiShapeModel::Polygon)
        return shape.data(RoiShapeModel::PolygonRole).value<QPolygonF>();
    return shape.calcRectPoints();
}

void expectOutline(RoiShapeModel const& shape, QPolygonF const& before,
                   std::function<QPointF(QPointF const&)> const& map)
{
    QPolygonF const after = outline(shape);
    ASSERT_EQ(after.size(), before.size());
    for (int i = 0; i < after.size(); ++i)
        expectNear(after[i], map(before[i]));
}

} // namespace

TEST(RoiShapeModel, MovesAndTurnsEveryKindAsOneBodyButNeverTurnsAnAxisParallelRectangle)
{
    RoiShapeModel axis;
    axis.setData(RoiShapeModel::RectRole, QRect(10, 20, 30, 15));
    RoiShapeModel polygon;
    polygon.setData(RoiShapeModel::TypeRole, RoiShapeModel::Polygon);
    polygon.setData(RoiShapeModel::PolygonRole, QVariant::fromValue(QPolygonF({{0, 0}, {40, 10}, {10, 30}})));
    RoiShapeModel const shapes[] = {axis, turnedShape(RoiShapeModel::RotatedRect, QSizeF(60, 22), -37),
                                    turnedShape(RoiShapeModel::RotatedEllipse, QSizeF(30, 8), 15), polygon};
    // A turned rectangle's corners, in order, from its own frame.
    QPointF const unturned[] = {{-30, -11}, {30, -11}, {30, 11}, {-30, 11}};
    for (int i = 0; i < 4; ++i)
        expectNear(shapes[1].calcRectPoints()[i], QPointF(100, 90) + turned(unturned[i], -37));

    QPointF const delta(7.5, -3), pivot(17, -4);
    for (RoiShapeModel const& shape : shapes) {
        SCOPED_TRACE(shape.getType());
        bool const turns = shape.getType() != RoiShapeModel::AxisRect;
        QPolygonF const before = outline(shape);
        QPointF const own =
            shape.getType() == RoiShapeModel::Polygon ? before.boundingRect().center() : QPointF(100, 90);
        RoiShapeModel moved = shape;
        moved.move(delta);
        expectOutline(moved, before, [&](QPointF const& p) { return p + delta; });
        RoiShapeModel aboutPivot = shape;
        aboutPivot.rotate(62, pivot);
        expectOutline(aboutPivot, before,
                      [&](QPointF const& p) { return turns ? pivot + turned(p - pivot, 62) : p; });
        RoiShapeModel aboutItself = shape;
        aboutItself.rotate(-25);
        expectOutline(aboutItself, before,
                      [&](QPointF const& p) { return turns ? own + turned(p - own, -25) : p; });
    }
}

TEST(RoiShapeModel, BoundsEachKindAsItsGeometrySays)
{
    RoiShapeModel axis; // an integer rectangle: right and bottom are inside
    axis.setData(RoiShapeModel::RectRole, QRect(QPoint(2, 3), QPoint(5, 9)));
    EXPECT_EQ(axis.boundingRect(), QRectF(2, 3, 4, 7));
    RoiShapeModel ellipse = turnedShape(RoiShapeModel::RotatedEllipse, QSizeF(4, 2), 0);
    EXPECT_EQ(ellipse.boundingRect(), QRectF(98, 89, 4, 2));
    ellipse.rotate(90);
    expectNear(ellipse.boundingRect().topLeft(), QPointF(99, 88));
    expectNear(ellipse.boundingRect().bottomRight(), QPointF(101, 92));
    RoiShapeModel const rect = turnedShape(RoiShapeModel::RotatedRect, QSizeF(4, 2), 90);
    expectNear(rect.boundingRect().topLeft(), QPointF(99, 88));
    expectNear(rect.boundingRect().bottomRight(), QPointF(101, 92));
    RoiShapeModel unknown;
    unknown.setData(RoiShapeModel::TypeRole, 7);
    EXPECT_TRUE(unknown.boundingRect().isNull());
}

TEST(RoiShapeModel, ResizesAboutTheAnchorWithoutFlippingOrCollapsing)
{
    RoiShapeModel axis;
    axis.setData(RoiShapeModel::RectRole, QRectF(0, 0, 10, 20));
    axis.resize(QLineF(0, 0, 10, 20), QPointF(5, -10));
    EXPECT_EQ(axis.data(RoiShapeModel::RectRole).toRectF(), QRectF(0, 0, 15, 10));
    // A horizontal handle cannot scale the height; a drag beyond the anchor shrinks to 1 %.
    axis.resize(QLineF(15, 5, 5, 5), QPointF(20, 3));
    expectNear(axis.data(RoiShapeModel::RectRole).toRectF().topLeft(), QPointF(14.85, 0));
    expectNear(axis.data(RoiShapeModel::RectRole).toRectF().bottomRight(), QPointF(15, 10));
    // A polygon's vertices scale about the anchor; a factor of exactly 0 is raised to 1 %, one of
    // exactly 100 is taken and one beyond is refused.
    RoiShapeModel polygon;
    polygon.setData(RoiShapeModel::TypeRole, RoiShapeModel::Polygon);
    polygon.setData(RoiShapeModel::PolygonRole, QVariant::fromValue(QPolygonF({{2, 2}, {12, 2}, {12, 6}})));
    polygon.resize(QLineF(2, 2, 12, 6), QPointF(-10, 396));
    QPolygonF const scaled = polygon.data(RoiShapeModel::PolygonRole).value<QPolygonF>();
    expectNear(scaled[1], QPointF(2.1, 2));
    expectNear(scaled[2], QPointF(2.1, 402));
    polygon.resize(QLineF(2, 2, 12, 6), QPointF(0, 401));
    expectNear(polygon.data(RoiShapeModel::PolygonRole).value<QPolygonF>()[2], QPointF(2.1, 402));
    // A turned shape keeps a factor of exactly 0 and raises a negative one.
    RoiShapeModel ellipse = turnedShape(RoiShapeModel::RotatedEllipse, QSizeF(10, 10), 0);
    ellipse.resize(QLineF(95, 85, 105, 95), QPointF(-10, -20));
    EXPECT_EQ(ellipse.data(RoiShapeModel::SizeRole).toSizeF(), QSizeF(0, 10 * 0.01f));
    // Dragging a corner of a turned rectangle scales it in its own frame; the opposite corner stays.
    RoiShapeModel rect = turnedShape(RoiShapeModel::RotatedRect, QSizeF(40, 20), 30);
    QPolygonF const corners = rect.calcRectPoints();
    rect.resize(QLineF(corners[0], corners[2]), turned(QPointF(6, -4), 30));
    EXPECT_EQ(rect.data(RoiShapeModel::SizeRole).toSizeF().toSize(), QSize(46, 16));
    expectNear(rect.calcRectPoints()[0], corners[0]);
}
