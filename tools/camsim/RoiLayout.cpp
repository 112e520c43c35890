#include "RoiLayout.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace camsim {
namespace {

// Every grid shape has a cell of its own: GridColumns * GridRows >= MaxRois.
constexpr int GridColumns = 8;
constexpr int GridRows = 8;

// Kinds not in the two pools' first shapes come first, so that a few more ROIs show them all.
char const* const GridKinds[] = {
    "Square", "Regular", "HoneycombLonger", "HoneycombRight", "HoneycombLeft",   "Poly",
    "Rect",   "Ellipse", "Circle",          "Hexagon",        "HoneycombShorter"};
constexpr int GridKindCount = sizeof GridKinds / sizeof GridKinds[0];

// The k-th shape of the grid that both pools go on with, numbered `id`.
Roi gridShape(SyntheticScene const& scene, int k, int id)
{
    double const w = scene.width(), h = scene.height();
    double const cx = w * (k % GridColumns + 0.5) / GridColumns;
    double const cy = h * (k / GridColumns + 0.5) / GridRows;
    double const size = w / 12;
    QString const type = GridKinds[k % GridKindCount];
    Roi roi{id, type, cx, cy, size, type == "Square" ? size : h / 12, double(k * 15 % 60), {}, 2000};
    if (type == "Poly")
        roi.points = {QPointF(cx - size / 2, cy + size / 2), QPointF(cx + size / 2, cy + size / 2),
                      QPointF(cx, cy - size / 2)};
    if (type == "Regular")
        roi.corners = 5 + k % 4;
    return roi;
}

// Model 1's: ROIs on the moving box, the wall, a corner and the floor.
QVector<Roi> boxScene(SyntheticScene const& scene, BoxPosition const& box)
{
    double const w = scene.width(), h = scene.height();
    Roi onBox{1,
              "Rect",
              box.left + box.width / 2.0,
              box.top + box.height / 2.0,
              double(box.width),
              double(box.height),
              0,
              {},
              1200};
    Roi wall{2, "Ellipse", w * 0.15, h * 0.75, w * 0.16, h * 0.2, 0, {}, 2000};
    Roi corner{3, "Hexagon", w * 0.85, h * 0.2, w * 0.12, w * 0.12, 30, {}, 2000};
    Roi floor{10,      "Poly",
              w * 0.8, h * 0.8,
              w * 0.2, h * 0.2,
              0,       {QPointF(w * 0.7, h * 0.9), QPointF(w * 0.9, h * 0.9), QPointF(w * 0.8, h * 0.7)},
              2000};
    return {onBox, wall, corner, floor};
}

// Every further model's: one of each further kind, some turned, so the amplitude picture shows them.
QVector<Roi> kindsScene(SyntheticScene const& scene)
{
    double const w = scene.width(), h = scene.height();
    Roi centre{1, "Rect", w / 2, h / 2, w * 0.3, h * 0.3, 0, {}, 1600};
    Roi turned{2, "Rect", w * 0.22, h * 0.2, w * 0.14, h * 0.1, 25, {}, 2000};
    Roi disc{3, "Circle", w * 0.78, h * 0.5, w * 0.12, w * 0.12, 0, {}, 2000};
    Roi cell{4, "HoneycombShorter", w * 0.15, h * 0.45, w * 0.1, h * 0.16, 0, {}, 2000};
    Roi oval{5, "Ellipse", w * 0.5, h * 0.85, w * 0.18, h * 0.1, -20, {}, 2000};
    return {centre, turned, disc, cell, oval};
}

// The first `count` ROIs of a pool that starts with `scene`.
QVector<Roi> firstOfPool(SyntheticScene const& scene, QVector<Roi> rois, int count)
{
    int nextId = 0;
    for (Roi const& roi : rois)
        nextId = std::max(nextId, roi.id + 1);
    for (int k = 0; rois.size() < count; ++k)
        rois.append(gridShape(scene, k, nextId++));
    rois.resize(count);
    return rois;
}

} // namespace

RoiLayout::RoiLayout(std::vector<int> roiCounts) : m_counts(std::move(roiCounts)) {}

std::string RoiLayout::parse(std::string const& text, std::vector<int>& roiCounts)
{
    std::vector<int> counts;
    size_t start = 0;
    for (;;) {
        size_t const comma = text.find(',', start);
        std::string const word = text.substr(start, comma == std::string::npos ? comma : comma - start);
        char* end = nullptr;
        errno = 0;
        long const count = strtol(word.c_str(), &end, 10);
        if (word.empty() || *end != '\0' || errno != 0 || count < 0 || count > MaxRois)
            return "\"" + word + "\" is not a number of ROIs from 0 to " + std::to_string(MaxRois) +
                   " (give one count per model, e.g. 4,5,0)";
        counts.push_back(static_cast<int>(count));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    if (counts.size() > size_t(MaxModels))
        return "at most " + std::to_string(MaxModels) + " models, not " + std::to_string(counts.size());
    roiCounts = counts;
    return "";
}

QVector<Model> RoiLayout::models(SyntheticScene const& scene, BoxPosition const& box) const
{
    QVector<Model> all;
    for (size_t i = 0; i < m_counts.size(); ++i) {
        QVector<Roi> const first = i == 0 ? boxScene(scene, box) : kindsScene(scene);
        all.append(Model{int(i) + 1, firstOfPool(scene, first, m_counts[i])});
    }
    return all;
}

bool RoiLayout::inside(Roi const& roi, double x, double y)
{
    // In the ROI's own frame: a positive angle turns a shape clockwise on the image.
    double const t = roi.angle * M_PI / 180.0;
    double const dx = (x - roi.cx) * std::cos(t) + (y - roi.cy) * std::sin(t);
    double const dy = -(x - roi.cx) * std::sin(t) + (y - roi.cy) * std::cos(t);
    if (roi.type == "Rect" || roi.type == "Square")
        return std::fabs(dx) <= roi.width / 2 && std::fabs(dy) <= roi.height / 2;
    if (roi.type == "Ellipse")
        return std::pow(dx / (roi.width / 2), 2) + std::pow(dy / (roi.height / 2), 2) <= 1.0;
    // The polygon kinds are close enough to their inscribed ellipse for a mask.
    if (roi.type == "Hexagon" || roi.type == "Circle" || roi.type == "Regular")
        return dx * dx + dy * dy <= std::pow(roi.width / 2, 2);
    if (roi.type.startsWith("Honeycomb"))
        return std::pow(dx / (roi.width / 2), 2) + std::pow(dy / (roi.height / 2), 2) <= 1.0;
    bool in = false;
    for (int i = 0, j = roi.points.size() - 1; i < roi.points.size(); j = i++) {
        QPointF const a = roi.points[i], b = roi.points[j];
        if ((a.y() > y) != (b.y() > y) && x < (b.x() - a.x()) * (y - a.y()) / (b.y() - a.y()) + a.x())
            in = !in;
    }
    return in;
}

} // namespace camsim
