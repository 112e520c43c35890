// Geometry of one ROI, checked against plain rotation matrices computed here in double precision.
// Coordinates are kept in single precision, so positions agree to 2e-3 pixels on shapes of up to a
// few hundred pixels.
#include <cmath>

#include <gtest/gtest.h>

#include "roi/RoiShapeModel.h"

using orv::RoiShapeModel;

namespace {

double const Tolerance = 2e-3;

// Clockwise on the image (y downwards) by the given degrees.
QPointF turned(QPointF const& p, double degrees)
{
    double const t = degrees * M_PI / 180.0;
    return QPointF(p.x() * std::cos(t) - p.y() * std::sin(t), p.x() * std::sin(t) + p.y() * std::cos(t));
}

void expectNear(QPointF const& actual, QPointF const& expected, char const* what, double angle)
{
    EXPECT_NEAR(actual.x(), expected.x(), Tolerance) << what << " at " << angle << " degrees";
    EXPECT_NEAR(actual.y(), expected.y(), Tolerance) << what << " at " << angle << " degrees";
}

RoiShapeModel turnedShape(int type, QPointF center, QSizeF size, float angle)
{
    RoiShapeModel shape;
    shape.setData(RoiShapeModel::TypeRole, type);
    shape.setData(RoiShapeModel::CenterRole, center);
    shape.setData(RoiShapeModel::SizeRole, size);
    shape.setData(RoiShapeModel::AngleRole, angle);
    return shape;
}

RoiShapeModel polygonShape(QPolygonF const& points)
{
    RoiShapeModel shape;
    shape.setData(RoiShapeModel::TypeRole, int(RoiShapeModel::Polygon));
    shape.setData(RoiShapeModel::PolygonRole, QVariant::fromValue(points));
    return shape;
}

} // namespace

TEST(RoiShapeModel, ListsTheFourCornersOfATurnedRectangleInOrderAtEveryAngle)
{
    QPolygonF const atZero = RoiShapeModel::calcRectPoints(QPointF(0, 0), QSizeF(4, 2), 0);
    EXPECT_EQ(atZero, QPolygonF({{-2, -1}, {2, -1}, {2, 1}, {-2, 1}}));

    QPointF const center(120.5, 80.25);
    QSizeF const size(60, 22);
    QPointF const unturned[] = {{-30, -11}, {30, -11}, {30, 11}, {-30, 11}};
    for (int step = -72; step <= 72; ++step) {
        double const angle = step * 5.0 + 0.3;
        QPolygonF const corners = RoiShapeModel::calcRectPoints(center, size, float(angle));
        ASSERT_EQ(corners.size(), 4);
        for (int i = 0; i < 4; ++i)
            expectNear(corners[i], center + turned(unturned[i], angle), "corner", angle);
    }
}

TEST(RoiShapeModel, BoundsATurnedEllipseTightlyAtEveryAngle)
{
    for (int angle = -180; angle <= 180; angle += 7) {
        RoiShapeModel const ellipse =
            turnedShape(RoiShapeModel::RotatedEllipse, QPointF(50, 40), QSizeF(80, 30), float(angle));
        // The extremes of a densely sampled outline.
        double left = 1e9, right = -1e9, top = 1e9, bottom = -1e9;
        for (int i = 0; i < 7200; ++i) {
            double const t = i * 2 * M_PI / 7200;
            QPointF const p = QPointF(50, 40) + turned(QPointF(40 * std::cos(t), 15 * std::sin(t)), angle);
            left = std::min(left, p.x());
            right = std::max(right, p.x());
            top = std::min(top, p.y());
            bottom = std::max(bottom, p.y());
        }
        QRectF const bounds = ellipse.boundingRect();
        expectNear(bounds.topLeft(), QPointF(left, top), "top left", angle);
        expectNear(bounds.bottomRight(), QPointF(right, bottom), "bottom right", angle);
    }
}

TEST(RoiShapeModel, BoundsEachTypeByItsOwnConvention)
{
    RoiShapeModel axis;
    axis.setData(RoiShapeModel::RectRole, QRect(QPoint(10, 20), QPoint(30, 25)));
    EXPECT_EQ(axis.boundingRect(), QRectF(10, 20, 21, 6)); // inclusive right and bottom

    RoiShapeModel const rect = turnedShape(RoiShapeModel::RotatedRect, QPointF(0, 0), QSizeF(4, 2), 90);
    expectNear(rect.boundingRect().topLeft(), QPointF(-1, -2), "turned rectangle", 90);
    expectNear(rect.boundingRect().bottomRight(), QPointF(1, 2), "turned rectangle", 90);

    EXPECT_EQ(polygonShape(QPolygonF({{3, 9}, {7, 1}, {-2, 4}})).boundingRect(), QRectF(-2, 1, 9, 8));

    RoiShapeModel unknown = rect;
    unknown.setData(RoiShapeModel::TypeRole, 4);
    EXPECT_TRUE(unknown.boundingRect().isEmpty());
}

TEST(RoiShapeModel, TurnsRectanglesAndPolygonsRigidlyAboutAPivot)
{
    QPointF const pivot(17, -4);
    QPolygonF const triangle({{10, 10}, {40, 12}, {22, 35}});
    for (int angle = -350; angle <= 350; angle += 25) {
        RoiShapeModel rect = turnedShape(RoiShapeModel::RotatedRect, QPointF(60, 30), QSizeF(30, 10), 20);
        QPolygonF const before = rect.calcRectPoints();
        rect.rotate(float(angle), pivot);
        QPolygonF const after = rect.calcRectPoints();
        for (int i = 0; i < 4; ++i)
            expectNear(after[i], pivot + turned(before[i] - pivot, angle), "rectangle corner", angle);

        RoiShapeModel polygon = polygonShape(triangle);
        polygon.rotate(float(angle), pivot);
        QPolygonF const vertices = polygon.data(RoiShapeModel::PolygonRole).value<QPolygonF>();
        for (int i = 0; i < 3; ++i)
            expectNear(vertices[i], pivot + turned(triangle[i] - pivot, angle), "vertex", angle);
    }
}

TEST(RoiShapeModel, TurnsAboutItselfOnlyWhatCanBeTurned)
{
    RoiShapeModel ellipse = turnedShape(RoiShapeModel::RotatedEllipse, QPointF(5, 6), QSizeF(4, 2), 10);
    ellipse.rotate(25);
    EXPECT_FLOAT_EQ(ellipse.data(RoiShapeModel::AngleRole).toFloat(), 35);
    EXPECT_EQ(ellipse.data(RoiShapeModel::CenterRole).toPointF(), QPointF(5, 6));

    // A polygon turns about the middle of its bounding rectangle, (5, 2) here.
    RoiShapeModel polygon = polygonShape(QPolygonF({{0, 0}, {10, 0}, {10, 4}}));
    polygon.rotate(90);
    QPolygonF const vertices = polygon.data(RoiShapeModel::PolygonRole).value<QPolygonF>();
    expectNear(vertices[0], QPointF(7, -3), "vertex", 90);
    expectNear(vertices[1], QPointF(7, 7), "vertex", 90);
    expectNear(vertices[2], QPointF(3, 7), "vertex", 90);

    RoiShapeModel axis;
    axis.setData(RoiShapeModel::RectRole, QRect(0, 0, 10, 5));
    RoiShapeModel unknown = turnedShape(7, QPointF(1, 1), QSizeF(2, 2), 0);
    for (RoiShapeModel* shape : {&axis, &unknown}) {
        RoiShapeModel const before = *shape;
        shape->rotate(45, QPointF(100, 100));
        shape->rotate(45);
        EXPECT_EQ(shape->data(RoiShapeModel::RectRole), before.data(RoiShapeModel::RectRole));
        EXPECT_EQ(shape->data(RoiShapeModel::CenterRole), before.data(RoiShapeModel::CenterRole));
        EXPECT_EQ(shape->data(RoiShapeModel::AngleRole), before.data(RoiShapeModel::AngleRole));
    }
}

TEST(RoiShapeModel, ResizesAxisShapesAboutTheAnchorWithinLimits)
{
    RoiShapeModel axis;
    axis.setData(RoiShapeModel::RectRole, QRectF(0, 0, 10, 20));
    axis.resize(QLineF(0, 0, 10, 20), QPointF(5, -10));
    EXPECT_EQ(axis.data(RoiShapeModel::RectRole).toRectF(), QRectF(0, 0, 15, 10));

    // A horizontal handle cannot scale the height; a drag beyond the anchor shrinks to 1 %.
    axis.resize(QLineF(15, 5, 5, 5), QPointF(20, 3));
    QRectF const shrunk = axis.data(RoiShapeModel::RectRole).toRectF();
    expectNear(shrunk.topLeft(), QPointF(14.85, 0), "top left", 0);
    expectNear(shrunk.bottomRight(), QPointF(15, 10), "bottom right", 0);

    // Dragging the handle exactly onto the anchor does not collapse a polygon either.
    RoiShapeModel polygon = polygonShape(QPolygonF({{0, 0}, {10, 0}, {10, 10}}));
    polygon.resize(QLineF(0, 0, 10, 10), QPointF(-10, 0));
    QPolygonF const vertices = polygon.data(RoiShapeModel::PolygonRole).value<QPolygonF>();
    expectNear(vertices[1], QPointF(0.1, 0), "vertex", 0);
    expectNear(vertices[2], QPointF(0.1, 10), "vertex", 0);
}

TEST(RoiShapeModel, ResizesTurnedShapesSoThatTheAnchorCornerStaysPut)
{
    QSizeF const size(40, 20);
    QPointF const grow(6, -4); // in the shape's own frame
    int checked = 0;
    for (int angle = -175; angle <= 175; angle += 10) {
        RoiShapeModel rect = turnedShape(RoiShapeModel::RotatedRect, QPointF(100, 90), size, float(angle));
        QPolygonF const corners = rect.calcRectPoints();
        QLineF const handle(corners[0], corners[2]); // drag the opposite corner
        QPointF const delta = turned(grow, angle);
        // Where the handle hardly spans an axis, the centre's factor is limited by design.
        if (std::fabs(handle.dx()) < 2 || std::fabs(handle.dy()) < 2)
            continue;
        rect.resize(handle, delta);
        QSizeF const resized = rect.data(RoiShapeModel::SizeRole).toSizeF();
        EXPECT_NEAR(resized.width(), 46, Tolerance) << angle;
        EXPECT_NEAR(resized.height(), 16, Tolerance) << angle;
        expectNear(rect.calcRectPoints()[0], corners[0], "anchor corner", angle);
        expectNear(rect.calcRectPoints()[2], corners[2] + delta, "dragged corner", angle);
        ++checked;
    }
    EXPECT_GT(checked, 25);
}

TEST(RoiShapeModel, KeepsAZeroFactorOnTurnedShapesButRaisesANegativeOne)
{
    RoiShapeModel ellipse = turnedShape(RoiShapeModel::RotatedEllipse, QPointF(0, 0), QSizeF(10, 10), 0);
    ellipse.resize(QLineF(-5, -5, 5, 5), QPointF(-10, -20));
    EXPECT_FLOAT_EQ(float(ellipse.data(RoiShapeModel::SizeRole).toSizeF().width()), 0);
    EXPECT_FLOAT_EQ(float(ellipse.data(RoiShapeModel::SizeRole).toSizeF().height()), 0.1f);

    // A handle without height leaves the height alone.
    RoiShapeModel rect = turnedShape(RoiShapeModel::RotatedRect, QPointF(0, 0), QSizeF(10, 10), 0);
    rect.resize(QLineF(-5, 0, 5, 0), QPointF(5, 7));
    EXPECT_EQ(rect.data(RoiShapeModel::SizeRole).toSizeF(), QSizeF(15, 10));
    expectNear(rect.data(RoiShapeModel::CenterRole).toPointF(), QPointF(2.5, 0), "centre", 0);
}
