// Outlines of the parametric ROI kinds as polygons on the image: regular polygons of a given number
// of corners and the four cells of a honeycomb field. Each is laid out in the shape's own frame,
// turned clockwise on the image by the shape's angle and moved to its centre.
#pragma once

#include <QPointF>
#include <QPolygonF>
#include <QSizeF>

namespace orv {

class NumberToPoly
{
public:
    // The cells that tile a rectangular honeycomb field: whole hexagons whose width spans the
    // long or the short diagonal, and the right and left halves of a short-diagonal cell (the right
    // half is what a border cuts off at the field's left border, and the other way round).
    enum class Cell
    {
        Longer,
        Shorter,
        Right,
        Left,
    };

    // The most corners an outline has: an ellipse is drawn with at most this many, and a regular
    // polygon with more (a model may ask for two billion) is refused rather than allocated.
    static constexpr int MaxCorners = 4096;

    // Corners on the circle of the given diameter, the first on the shape's x axis (pointing right
    // at angle 0), then clockwise. Fewer than 3 or more than MaxCorners corners make no polygon.
    static QPolygonF regular(int corners, QPointF const& center, float diameter, float angle);

    // The cell stretched to fill a box of the given full width and height.
    static QPolygonF honeycomb(Cell cell, QPointF const& center, QSizeF const& size, float angle);

    // The outline of an ellipse of the given full width and height, fine enough that no chord
    // strays more than a twentieth of a pixel from the curve.
    static QPolygonF ellipse(QPointF const& center, QSizeF const& size, float angle);

    // Points given in the shape's own frame (relative to its centre), turned and moved.
    static QPolygonF placed(QPolygonF const& ownFrame, QPointF const& center, float angle);
};

} // namespace orv
