#include "roi/NumberToPoly.h"

#include <algorithm>
#include <cmath>

#include "roi/RoiShapeModel.h"

namespace orv {

namespace {

float const Pi = 3.1415927f;

// Corners in a box of size 1 by 1 about the origin, y downwards, in drawing order.
QPolygonF unitCell(NumberToPoly::Cell cell)
{
    QPolygonF corners;
    switch (cell) {
    case NumberToPoly::Cell::Longer:
        corners << QPointF(-0.5, 0) << QPointF(-0.25, -0.5) << QPointF(0.25, -0.5) << QPointF(0.5, 0)
                << QPointF(0.25, 0.5) << QPointF(-0.25, 0.5);
        break;
    case NumberToPoly::Cell::Shorter:
        corners << QPointF(0, -0.5) << QPointF(0.5, -0.25) << QPointF(0.5, 0.25) << QPointF(0, 0.5)
                << QPointF(-0.5, 0.25) << QPointF(-0.5, -0.25);
        break;
    case NumberToPoly::Cell::Right:
        // The right half of a Shorter cell; the cut runs along the box's left side.
        corners << QPointF(-0.5, -0.5) << QPointF(0.5, -0.25) << QPointF(0.5, 0.25) << QPointF(-0.5, 0.5);
        break;
    case NumberToPoly::Cell::Left:
        corners << QPointF(0.5, -0.5) << QPointF(0.5, 0.5) << QPointF(-0.5, 0.25) << QPointF(-0.5, -0.25);
        break;
    }
    return corners;
}

} // namespace

QPolygonF NumberToPoly::regular(int corners, QPointF const& center, float diameter, float angle)
{
    QPolygonF ownFrame;
    if (corners < 3 || corners > MaxCorners)
        return ownFrame;
    float const radius = diameter / 2.0f;
    for (int k = 0; k < corners; ++k) {
        float const phi = deg2rad(360.0f * float(k) / float(corners));
        ownFrame << QPointF(radius * std::cos(phi), radius * std::sin(phi));
    }
    return placed(ownFrame, center, angle);
}

QPolygonF NumberToPoly::honeycomb(Cell cell, QPointF const& center, QSizeF const& size, float angle)
{
    QPolygonF ownFrame = unitCell(cell);
    for (QPointF& corner : ownFrame)
        corner = QPointF(float(corner.x()) * float(size.width()), float(corner.y()) * float(size.height()));
    return placed(ownFrame, center, angle);
}

QPolygonF NumberToPoly::ellipse(QPointF const& center, QSizeF const& size, float angle)
{
    float const a = std::fabs(float(size.width())) / 2.0f;
    float const b = std::fabs(float(size.height())) / 2.0f;
    // A chord over the angle step d strays about r * d * d / 8 from a circle of radius r; the flatter
    // side of an ellipse is no more curved than the circle of its larger radius.
    QPolygonF ownFrame;
    if (!std::isfinite(a) || !std::isfinite(b))
        return ownFrame;
    float const step = std::sqrt(8.0f * 0.05f / std::max(std::max(a, b), 1.0f));
    // Bounded while still a float: a huge radius asks for more corners than an int holds.
    int const corners = int(std::min(float(MaxCorners), std::max(16.0f, std::ceil(2.0f * Pi / step))));
    ownFrame.reserve(corners);
    for (int k = 0; k < corners; ++k) {
        float const t = 2.0f * Pi * float(k) / float(corners);
        ownFrame << QPointF(a * std::cos(t), b * std::sin(t));
    }
    return placed(ownFrame, center, angle);
}

QPolygonF NumberToPoly::placed(QPolygonF const& ownFrame, QPointF const& center, float angle)
{
    // With y downwards the usual rotation matrix turns clockwise on the image.
    float const theta = deg2rad(angle);
    float const c = std::cos(theta);
    float const s = std::sin(theta);
    float const cx = float(center.x());
    float const cy = float(center.y());
    QPolygonF onImage;
    onImage.reserve(ownFrame.size());
    for (QPointF const& p : ownFrame) {
        float const x = float(p.x());
        float const y = float(p.y());
        onImage << QPointF(cx + x * c - y * s, cy + x * s + y * c);
    }
    return onImage;
}

} // namespace orv
