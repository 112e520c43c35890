// Draws the regions of interest of a result model onto a picture of the camera image, so that a user
// sees where the application evaluates: outlines only, no text; the plug-in's picture in one colour.
#pragma once

#include <functional>

#include <QByteArray>
#include <QColor>

#include "roi/RoiElements.h"

class QImage;
class QPainter;

namespace orv {

class RoiSyncer_RX7100
{
public:
    // The one outline colour: bright green stands out on the grey amplitude picture.
    static QColor penColor() { return QColor(0, 255, 0); }

    // Reads the ROIs of the result model text; false (and no ROIs) when it is not a JSON object.
    bool loadFromJson(QByteArray const& json);

    using ColourOf = std::function<QColor(RoiElements::Element const&)>;

    // Outlines every loaded ROI on the image, in penColor() or in the colour `colourOf` picks for
    // it. An image without colours is first converted to 32-bit RGB so that the outlines keep their
    // colour.
    void paintRois(QImage& image) const;
    void paintRois(QImage& image, ColourOf const& colourOf) const;

    RoiElements const& rois() const { return m_rois; }

private:
    static void paintShape(QPainter& painter, RoiShapeModel const& shape);

    RoiElements m_rois;
};

} // namespace orv
