// Geometry of one ROI as an editor changes it, checked against plain rotation matrices computed here
// in double precision. Coordinates are kept in single precision, so positions agree to 2e-3 pixels.
#include <gtest/gtest.h>

#include <cmath>

#include "roi/RoiShapeModel.h"

using orv::RoiShapeModel;

// Clockwise on the image (y downwards) by the given degrees.
static QPointF turned(QPointF const& p, double degrees)
{
    double const t = degrees * M_PI / 180.0;
    return QPointF(p.x() * std::cos(t) - p.y() * std::sin(t), p.x() * std::sin(t) + p.y() * std::cos(t));
}

static void expectNear(QPointF const& actual, QPointF const& expected)
{
    EXPECT_LT(QLineF(actual, expected).length(), 2e-3)
        << actual.x() << "," << actual.y() << " instead of " << expected.x() << "," << expected.y();
}

static RoiShapeModel turnedShape(int type, QSizeF size, double angle)
{
    RoiShapeModel shape;
    shape.setData(RoiShapeModel::TypeRole, type);
    shape.setData(RoiShapeModel::CenterRole, QPointF(100, 90));
    shape.setData(RoiShapeModel::SizeRole, size);
    shape.setData(RoiShapeModel::AngleRole, float(angle));
    return shape;
}

TEST(RoiShapeModel, ListsTheCornersOfATurnedRectangleInOrderAndTurnsOnlyTurnedShapesAboutAPivot)
{
    RoiShapeModel rect = turnedShape(RoiShapeModel::RotatedRect, QSizeF(60, 22), -37);
    QPointF const pivot(17, -4), unturned[] = {{-30, -11}, {30, -11}, {30, 11}, {-30, 11}};
    rect.rotate(62, pivot);
    for (int i = 0; i < 4; ++i)
        expectNear(rect.calcRectPoints()[i],
                   pivot + turned(QPointF(100, 90) - pivot + turned(unturned[i], -37), 62));
    RoiShapeModel axis; // cannot be turned
    axis.setData(RoiShapeModel::RectRole, QRect(0, 0, 10, 5));
    axis.rotate(45, QPointF(100, 100));
    EXPECT_EQ(axis.data(RoiShapeModel::RectRole), QVariant(QRect(0, 0, 10, 5)));
    EXPECT_FALSE(axis.data(RoiShapeModel::AngleRole).isValid());
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
