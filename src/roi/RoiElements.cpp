#include "roi/RoiElements.h"

#include <algorithm>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>

#include "core/JsonParser.h"
#include "roi/NumberToPoly.h"

namespace orv {

char const* const RoiElements::Rect = "Rect";
char const* const RoiElements::Ellipse = "Ellipse";
char const* const RoiElements::Poly = "Poly";
char const* const RoiElements::Square = "Square";
char const* const RoiElements::Circle = "Circle";
char const* const RoiElements::Hexagon = "Hexagon";
char const* const RoiElements::Regular = "Regular";
char const* const RoiElements::HoneycombShorter = "HoneycombShorter";
char const* const RoiElements::HoneycombLonger = "HoneycombLonger";
char const* const RoiElements::HoneycombRight = "HoneycombRight";
char const* const RoiElements::HoneycombLeft = "HoneycombLeft";

namespace {

// Numbers may come as JSON numbers or as numeric text; anything else reads as 0.
float number(QJsonObject const& roi, char const* key)
{
    return roi.value(QLatin1String(key)).toVariant().toFloat();
}

// The regular shapes take their one size from the width, or from the height when there is no width.
float diameter(QJsonObject const& roi)
{
    return roi.contains(QLatin1String("width")) ? number(roi, "width") : number(roi, "height");
}

void setTurned(RoiShapeModel& shape, int type, QPointF const& center, QSizeF const& size, float angle)
{
    shape.setData(RoiShapeModel::TypeRole, type);
    shape.setData(RoiShapeModel::CenterRole, center);
    shape.setData(RoiShapeModel::SizeRole, size);
    shape.setData(RoiShapeModel::AngleRole, angle);
}

bool setPolygon(RoiShapeModel& shape, QPolygonF const& polygon)
{
    if (polygon.isEmpty())
        return false;
    shape.setData(RoiShapeModel::TypeRole, int(RoiShapeModel::Polygon));
    shape.setData(RoiShapeModel::PolygonRole, QVariant::fromValue(polygon));
    return true;
}

QPolygonF listedPoints(QJsonObject const& roi)
{
    QPolygonF points;
    for (QJsonValue const& point : roi.value(QLatin1String("points")).toArray()) {
        QJsonObject const xy = point.toObject();
        points << QPointF(number(xy, "x"), number(xy, "y"));
    }
    return points;
}

bool honeycombCell(QString const& type, NumberToPoly::Cell& cell)
{
    if (type == QLatin1String(RoiElements::HoneycombShorter))
        cell = NumberToPoly::Cell::Shorter;
    else if (type == QLatin1String(RoiElements::HoneycombLonger))
        cell = NumberToPoly::Cell::Longer;
    else if (type == QLatin1String(RoiElements::HoneycombRight))
        cell = NumberToPoly::Cell::Right;
    else if (type == QLatin1String(RoiElements::HoneycombLeft))
        cell = NumberToPoly::Cell::Left;
    else
        return false;
    return true;
}

// The ROI table of a model with its updates merged in: "ROIs" is a table keyed by id (a list is
// accepted too, keyed by each entry's "id" or else its position).
QJsonObject roiTable(QJsonObject const& model)
{
    QJsonObject table;
    QJsonValue const rois = model.value(QLatin1String("ROIs"));
    if (rois.isObject()) {
        table = rois.toObject();
    } else {
        QJsonArray const list = rois.toArray();
        for (int i = 0; i < list.size(); ++i) {
            QJsonValue const id = list.at(i).toObject().value(QLatin1String("id"));
            table.insert(id.isUndefined() ? QString::number(i) : id.toVariant().toString(), list.at(i));
        }
    }
    QJsonArray const updates =
        model.value(QLatin1String("ROIsUpdated")).toObject().value(QLatin1String("ROIs")).toArray();
    for (QJsonValue const& update : updates) {
        QJsonObject const roi = update.toObject();
        table.insert(roi.value(QLatin1String("id")).toVariant().toString(), roi);
    }
    return table;
}

} // namespace

bool RoiElements::toShape(QJsonObject const& roi, RoiShapeModel& shape)
{
    QString const type = roi.value(QLatin1String("type")).toString();
    QPointF const center(number(roi, "center_x"), number(roi, "center_y"));
    QSizeF const size(number(roi, "width"), number(roi, "height"));
    float const angle = number(roi, "angle");
    NumberToPoly::Cell cell;

    if (type == QLatin1String(Rect)) {
        setTurned(shape, RoiShapeModel::RotatedRect, center, size, angle);
    } else if (type == QLatin1String(Ellipse)) {
        setTurned(shape, RoiShapeModel::RotatedEllipse, center, size, angle);
    } else if (type == QLatin1String(Square)) {
        setTurned(shape, RoiShapeModel::RotatedRect, center, QSizeF(diameter(roi), diameter(roi)), angle);
    } else if (type == QLatin1String(Circle)) {
        setTurned(shape, RoiShapeModel::RotatedEllipse, center, QSizeF(diameter(roi), diameter(roi)), angle);
    } else if (type == QLatin1String(Poly)) {
        return setPolygon(shape, listedPoints(roi));
    } else if (type == QLatin1String(Hexagon)) {
        return setPolygon(shape, NumberToPoly::regular(6, center, diameter(roi), angle));
    } else if (type == QLatin1String(Regular)) {
        int const corners = roi.value(QLatin1String("points")).toVariant().toInt();
        return setPolygon(shape, NumberToPoly::regular(corners, center, diameter(roi), angle));
    } else if (honeycombCell(type, cell)) {
        return setPolygon(shape, NumberToPoly::honeycomb(cell, center, size, angle));
    } else {
        return false;
    }
    return true;
}

bool RoiElements::load(QByteArray const& json)
{
    m_elements.clear();
    m_skipped = 0;
    QJsonDocument const document = JsonParser::parse(json);
    if (!document.isObject())
        return false;
    QJsonObject const result = document.object();
    for (auto it = result.begin(); it != result.end(); ++it) {
        if (it.key().startsWith(QLatin1String("model_")) && it.value().isObject())
            loadModel(it.key(), it.value().toObject());
    }
    return true;
}

void RoiElements::loadModel(QString const& key, QJsonObject const& model)
{
    QJsonObject const table = roiTable(model);
    QStringList ids = table.keys();
    std::sort(ids.begin(), ids.end(),
              [](QString const& a, QString const& b) { return a.toInt() < b.toInt(); });
    for (QString const& id : ids) {
        Element element;
        element.model = key;
        element.id = id.toInt();
        QJsonObject const roi = table.value(id).toObject();
        element.type = roi.value(QLatin1String("type")).toString();
        element.state = roi.value(QLatin1String("state")).toString();
        if (toShape(roi, element.shape))
            m_elements.append(element);
        else
            ++m_skipped;
    }
}

} // namespace orv
