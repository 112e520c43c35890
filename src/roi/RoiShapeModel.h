// One region of interest on the camera image and the geometry an editor needs: corners of a turned
// rectangle, bounding rectangles, moving, turning and resizing by dragging a handle. Coordinates are
// image pixels (x right, y down) kept in single precision; angles are degrees, positive clockwise on
// the image.
#pragma once

#include <QLineF>
#include <QMap>
#include <QPointF>
#include <QPolygonF>
#include <QRectF>
#include <QSizeF>
#include <QVariant>

namespace orv {

float deg2rad(float degrees);

class RoiShapeModel
{
public:
    enum Role
    {
        TypeRole = 2,
        RectRole = 10,
        CenterRole = 20,
        SizeRole = 21,
        AngleRole = 22,
        PolygonRole = 30,
    };

    enum Type
    {
        AxisRect = 0,
        RotatedRect = 1,
        RotatedEllipse = 2,
        Polygon = 3,
    };

    RoiShapeModel();

    // A role the shape does not use reads as an invalid variant.
    QVariant data(int role) const { return m_data.value(role); }
    void setData(int role, QVariant const& value) { m_data.insert(role, value); }

    int getType() const;

    static QPolygonF calcRectPoints(QPointF const& center, QSizeF const& size, float angle);
    QPolygonF calcRectPoints() const;
    QRectF calcEllipseBoundingRect() const;
    QRectF boundingRect() const;

    void move(QPointF const& delta);
    void rotate(float angle, QPointF const& pivot);
    void rotate(float angle);
    void resize(QLineF const& handle, QPointF const& delta);

private:
    QPointF center() const { return m_data.value(CenterRole).toPointF(); }
    QSizeF size() const { return m_data.value(SizeRole).toSizeF(); }
    float angle() const { return m_data.value(AngleRole).toFloat(); }
    QPolygonF polygon() const { return m_data.value(PolygonRole).value<QPolygonF>(); }
    void setCenter(QPointF const& center);
    void setPolygon(QPolygonF const& polygon);

    QMap<int, QVariant> m_data;
};

} // namespace orv
