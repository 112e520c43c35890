#include "roi/RoiSyncer_RX7100.h"

#include <QImage>
#include <QPainter>
#include <QPen>

#include "roi/NumberToPoly.h"

namespace orv {

namespace {

bool hasColours(QImage::Format format)
{
    switch (format) {
    case QImage::Format_Invalid:
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
    case QImage::Format_Indexed8:
    case QImage::Format_Alpha8:
    case QImage::Format_Grayscale8:
    case QImage::Format_Grayscale16:
        return false;
    default:
        return true;
    }
}

} // namespace

bool RoiSyncer_RX7100::loadFromJson(QByteArray const& json)
{
    return m_rois.load(json);
}

void RoiSyncer_RX7100::paintRois(QImage& image) const
{
    paintRois(image, [](RoiElements::Element const&) { return penColor(); });
}

void RoiSyncer_RX7100::paintRois(QImage& image, ColourOf const& colourOf) const
{
    if (image.isNull() || m_rois.elements().isEmpty())
        return;
    if (!hasColours(image.format()))
        image = image.convertToFormat(QImage::Format_RGB32);

    QPainter painter(&image);
    // Aliased one-pixel lines: every outline pixel gets the full colour and nothing else is touched.
    painter.setRenderHint(QPainter::Antialiasing, false);
    QPen pen;
    pen.setWidth(0);
    painter.setBrush(Qt::NoBrush);
    for (RoiElements::Element const& element : m_rois.elements()) {
        pen.setColor(colourOf(element));
        painter.setPen(pen);
        paintShape(painter, element.shape);
    }
}

void RoiSyncer_RX7100::paintShape(QPainter& painter, RoiShapeModel const& shape)
{
    switch (shape.getType()) {
    case RoiShapeModel::AxisRect:
    case RoiShapeModel::Polygon: {
        QPolygonF const outline = shape.getType() == RoiShapeModel::Polygon
                                      ? shape.data(RoiShapeModel::PolygonRole).value<QPolygonF>()
                                      : QPolygonF(shape.boundingRect());
        painter.drawPolygon(outline);
        break;
    }
    case RoiShapeModel::RotatedRect:
        painter.drawPolygon(shape.calcRectPoints());
        break;
    case RoiShapeModel::RotatedEllipse:
        // As a fine polygon rather than the painter's own ellipse, whose aliased outline of an
        // unturned ellipse lands up to a pixel off the curve.
        painter.drawPolygon(NumberToPoly::ellipse(shape.data(RoiShapeModel::CenterRole).toPointF(),
                                                  shape.data(RoiShapeModel::SizeRole).toSizeF(),
                                                  shape.data(RoiShapeModel::AngleRole).toFloat()));
        break;
    default:
        break;
    }
}

} // namespace orv
