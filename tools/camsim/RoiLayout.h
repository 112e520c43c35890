// The models of a simulated result and their regions of interest. How many models there are and how
// many ROIs each has is chosen on the command line ("--rois 4,5,0"); a model with n ROIs takes the
// first n shapes of its pool, so that equal counts always give equal models and a PLC program can be
// tried on lists of any length, an empty one included.
//
// Model 1's pool starts with the four ROIs around the moving box (ids 1, 2, 3 and 10: keys that do
// not sort as text), every further model's with five ROIs of further kinds (ids 1 to 5); both go on
// with a grid of small shapes that cycles through every kind, numbered on from there.
#pragma once

#include <string>
#include <vector>

#include <QPointF>
#include <QString>
#include <QVector>

#include "SyntheticScene.h"

namespace camsim {

struct Roi
{
    int id;
    QString type; // "Rect", "Ellipse", "Poly", "Square", "Circle", "Hexagon", "Regular", "Honeycomb..."
    double cx, cy, width, height, angle;
    QVector<QPointF> points; // Poly only
    double distanceMm;
    int corners = 0; // Regular only
};

struct Model
{
    int id;
    QVector<Roi> rois;
};

class RoiLayout
{
public:
    static constexpr int MaxModels = 16;
    // Ids stay below 256, the largest a ROI mask pixel holds; more ROIs also slow every result down.
    static constexpr int MaxRois = 64;

    // One ROI count per model, each from 0 to MaxRois.
    explicit RoiLayout(std::vector<int> roiCounts = {4, 5});

    // "4,5,0": three models with 4, 5 and 0 ROIs. An empty text on success, else what is wrong.
    static std::string parse(std::string const& text, std::vector<int>& roiCounts);

    int modelCount() const { return int(m_counts.size()); }
    // The models for a frame whose box stands at `box`.
    QVector<Model> models(SyntheticScene const& scene, BoxPosition const& box) const;

    // Whether the image point lies in the ROI, for its mask.
    static bool inside(Roi const& roi, double x, double y);

private:
    std::vector<int> m_counts;
};

} // namespace camsim
