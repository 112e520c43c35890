// The regions of interest of one result model, read from its JSON text, each turned into a shape
// ready to draw. Models are the top-level "model_..." entries; their ROIs are the "ROIs" table,
// with the entries of "ROIsUpdated" replacing those of the same id.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include "roi/RoiShapeModel.h"

class QJsonObject;

namespace orv {

class RoiElements
{
public:
    // The ROI type names an application writes into its model.
    static char const* const Rect;
    static char const* const Ellipse;
    static char const* const Poly;
    static char const* const Square;
    static char const* const Circle;
    static char const* const Hexagon;
    static char const* const Regular;
    static char const* const HoneycombShorter;
    static char const* const HoneycombLonger;
    static char const* const HoneycombRight;
    static char const* const HoneycombLeft;

    struct Element
    {
        QString model; // the model's key, e.g. "model_001"
        int id = 0;    // the ROI's key read as a number
        QString type;
        QString state; // the ROI's "state" in the result ("good", ...); empty when it has none
        RoiShapeModel shape;
    };

    // Replaces the elements with those of the given model text; false when it is not a JSON object.
    bool load(QByteArray const& json);

    QVector<Element> const& elements() const { return m_elements; }
    // ROIs that were found but could not be made into a shape (unknown type, no outline).
    int skipped() const { return m_skipped; }

    // One ROI description into a shape; false for an unknown type or a shape without outline.
    static bool toShape(QJsonObject const& roi, RoiShapeModel& shape);

private:
    void loadModel(QString const& key, QJsonObject const& model);

    QVector<Element> m_elements;
    int m_skipped = 0;
};

} // namespace orv
