#include "roi/RoiShapeModel.h"

#include <cmath>

#include <QMetaType>
#include <QRect>

namespace orv {

namespace {

float const Pi = 3.1415927f;
float const HalfPi = 1.5707964f;

// The camera keeps coordinates in single precision; rounding every stored point through float keeps
// a shape on this machine exactly where the camera would put it.
QPointF single(float x, float y)
{
    return QPointF(x, y);
}

QPointF single(QPointF const& p)
{
    return single(float(p.x()), float(p.y()));
}

// A point turned clockwise on the image about a pivot. Qt counts a line's angle counter-clockwise on
// the screen, so decreasing it turns the point clockwise, the same way a growing shape angle turns.
QPointF turnedAbout(QPointF const& point, QPointF const& pivot, float angle)
{
    QLineF line(pivot, point);
    line.setAngle(line.angle() - angle);
    return single(line.p2());
}

// A vector turned by an angle in Qt's counter-clockwise sense.
QPointF turnedVector(QPointF const& vector, float angle)
{
    QLineF line(QPointF(0, 0), vector);
    line.setAngle(line.angle() + angle);
    return QPointF(line.dx(), line.dy());
}

bool outOfRange(float factor)
{
    return std::isnan(factor) || std::fabs(factor) > 100.0f;
}

// A drag never flips or collapses a shape, and a handle without extent along an axis leaves that
// axis alone.
float limitDragFactor(float factor)
{
    if (outOfRange(factor))
        return 1.0f;
    return factor <= 0.0f ? 0.01f : factor;
}

// The turned shapes keep a factor of exactly 0; only a negative one is raised.
float limitTurnedFactor(float factor)
{
    if (outOfRange(factor))
        return 1.0f;
    return factor < 0.0f ? 0.01f : factor;
}

float limitCenterFactor(float factor)
{
    return outOfRange(factor) ? 1.0f : factor;
}

float factor(float delta, float extent)
{
    return delta / extent + 1.0f;
}

QPointF scaledAbout(QPointF const& point, QPointF const& anchor, float sx, float sy)
{
    float const x1 = float(anchor.x());
    float const y1 = float(anchor.y());
    return single(x1 + sx * (float(point.x()) - x1), y1 + sy * (float(point.y()) - y1));
}

} // namespace

float deg2rad(float degrees)
{
    return degrees * Pi / 180.0f;
}

RoiShapeModel::RoiShapeModel()
{
    static int const polygonType = qRegisterMetaType<QPolygonF>("QPolygonF");
    (void)polygonType;
}

int RoiShapeModel::getType() const
{
    return m_data.value(TypeRole).toInt();
}

QPolygonF RoiShapeModel::calcRectPoints(QPointF const& center, QSizeF const& size, float angle)
{
    float const theta = -angle / 180.0f * Pi;
    float const halfWidth = float(size.width()) / 2.0f;
    float const halfHeight = float(size.height()) / 2.0f;
    float const ux = std::cos(theta) * halfWidth;
    float const uy = -std::sin(theta) * halfWidth;
    float const vx = std::cos(theta + HalfPi) * halfHeight;
    float const vy = -std::sin(theta + HalfPi) * halfHeight;
    float const cx = float(center.x());
    float const cy = float(center.y());

    QPolygonF corners;
    corners << single(cx - ux + vx, cy - uy + vy) << single(cx + ux + vx, cy + uy + vy)
            << single(cx + ux - vx, cy + uy - vy) << single(cx - ux - vx, cy - uy - vy);
    return corners;
}

QPolygonF RoiShapeModel::calcRectPoints() const
{
    return calcRectPoints(center(), size(), angle());
}

QRectF RoiShapeModel::calcEllipseBoundingRect() const
{
    float const theta = deg2rad(angle());
    float const a = float(size().width()) / 2.0f;
    float const b = float(size().height()) / 2.0f;
    float const c = std::cos(theta);
    float const s = std::sin(theta);
    float const width = 2.0f * std::sqrt((a * c) * (a * c) + (b * s) * (b * s));
    float const height = 2.0f * std::sqrt((a * s) * (a * s) + (b * c) * (b * c));
    QPointF const middle = center();
    return QRectF(single(float(middle.x()) - width / 2.0f, float(middle.y()) - height / 2.0f),
                  QSizeF(width, height));
}

QRectF RoiShapeModel::boundingRect() const
{
    switch (getType()) {
    case AxisRect:
        // Read as an integer rectangle: right and bottom are inclusive.
        return QRectF(m_data.value(RectRole).toRect());
    case RotatedRect:
        return calcRectPoints().boundingRect();
    case RotatedEllipse:
        return calcEllipseBoundingRect();
    case Polygon:
        return polygon().boundingRect();
    default:
        return QRectF();
    }
}

void RoiShapeModel::move(QPointF const& delta)
{
    switch (getType()) {
    case AxisRect:
        m_data.insert(RectRole, m_data.value(RectRole).toRectF().translated(delta));
        break;
    case RotatedRect:
    case RotatedEllipse:
        setCenter(center() + delta);
        break;
    case Polygon:
        setPolygon(polygon().translated(delta));
        break;
    default:
        break;
    }
}

void RoiShapeModel::rotate(float angle, QPointF const& pivot)
{
    int const type = getType();
    if (type == RotatedRect || type == RotatedEllipse) {
        m_data.insert(AngleRole, angle + this->angle());
        setCenter(turnedAbout(center(), pivot, angle));
    } else if (type == Polygon) {
        QPolygonF turned = polygon();
        for (QPointF& vertex : turned)
            vertex = turnedAbout(vertex, pivot, angle);
        setPolygon(turned);
    }
    // An axis-parallel rectangle cannot be turned; unknown types are left alone.
}

void RoiShapeModel::rotate(float angle)
{
    int const type = getType();
    if (type == RotatedRect || type == RotatedEllipse) {
        m_data.insert(AngleRole, angle + this->angle());
    } else if (type == Polygon) {
        QRectF const bounds = polygon().boundingRect();
        rotate(angle, QPointF(bounds.left() + bounds.width() / 2, bounds.top() + bounds.height() / 2));
    }
}

void RoiShapeModel::resize(QLineF const& handle, QPointF const& delta)
{
    QPointF const anchor = handle.p1();
    float const handleWidth = float(handle.dx());
    float const handleHeight = float(handle.dy());
    int const type = getType();

    if (type == AxisRect || type == Polygon) {
        float const sx = limitDragFactor(factor(float(delta.x()), handleWidth));
        float const sy = limitDragFactor(factor(float(delta.y()), handleHeight));
        if (type == AxisRect) {
            QRectF const rect = m_data.value(RectRole).toRectF();
            m_data.insert(RectRole, QRectF(scaledAbout(rect.topLeft(), anchor, sx, sy),
                                           scaledAbout(rect.bottomRight(), anchor, sx, sy)));
        } else {
            QPolygonF scaled = polygon();
            for (QPointF& vertex : scaled)
                vertex = scaledAbout(vertex, anchor, sx, sy);
            setPolygon(scaled);
        }
        return;
    }
    if (type != RotatedRect && type != RotatedEllipse)
        return;

    // Work in the shape's own frame: undo its turn on the drag and on the handle.
    float const shapeAngle = angle();
    QPointF const ownDelta = turnedVector(delta, shapeAngle);
    QPointF const ownHandle = turnedVector(QPointF(handleWidth, handleHeight), shapeAngle);
    float const ownWidth = float(ownHandle.x());
    float const ownHeight = float(ownHandle.y());
    float const sx = limitTurnedFactor(factor(float(ownDelta.x()), ownWidth));
    float const sy = limitTurnedFactor(factor(float(ownDelta.y()), ownHeight));
    QSizeF const oldSize = size();
    m_data.insert(SizeRole, QSizeF(float(oldSize.width()) * sx, float(oldSize.height()) * sy));

    // Move the centre so that the anchor's side of the shape stays where it was on the image.
    QPointF const growth =
        turnedVector(QPointF((sx - 1.0f) * ownWidth, (sy - 1.0f) * ownHeight), -shapeAngle);
    float const cx = limitCenterFactor(factor(float(growth.x()), handleWidth));
    float const cy = limitCenterFactor(factor(float(growth.y()), handleHeight));
    setCenter(scaledAbout(center(), anchor, cx, cy));
}

void RoiShapeModel::setCenter(QPointF const& center)
{
    m_data.insert(CenterRole, single(center));
}

void RoiShapeModel::setPolygon(QPolygonF const& polygon)
{
    QPolygonF rounded;
    rounded.reserve(polygon.size());
    for (QPointF const& vertex : polygon)
        rounded << single(vertex);
    m_data.insert(PolygonRole, QVariant::fromValue(rounded));
}

} // namespace orv
