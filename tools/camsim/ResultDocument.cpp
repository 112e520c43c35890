#include "ResultDocument.h"

#include <cmath>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointF>
#include <QVector>

namespace camsim {
namespace {

struct Roi
{
    int id;
    QString type; // "Rect", "Ellipse", "Poly", "Hexagon", "Circle", "HoneycombShorter"
    double cx, cy, width, height, angle;
    QVector<QPointF> points; // Poly only
    double distanceMm;
};

struct Model
{
    int id;
    QVector<Roi> rois;
};

bool inside(Roi const& roi, double x, double y)
{
    // In the ROI's own frame: a positive angle turns a shape clockwise on the image.
    double const t = roi.angle * M_PI / 180.0;
    double const dx = (x - roi.cx) * std::cos(t) + (y - roi.cy) * std::sin(t);
    double const dy = -(x - roi.cx) * std::sin(t) + (y - roi.cy) * std::cos(t);
    if (roi.type == "Rect")
        return std::fabs(dx) <= roi.width / 2 && std::fabs(dy) <= roi.height / 2;
    if (roi.type == "Ellipse")
        return std::pow(dx / (roi.width / 2), 2) + std::pow(dy / (roi.height / 2), 2) <= 1.0;
    // The hexagon kinds are close enough to their inscribed ellipse for a mask.
    if (roi.type == "Hexagon" || roi.type == "Circle")
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

QVector<Model> models(SyntheticScene const& scene, BoxPosition const& box)
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
    Roi centre{1, "Rect", w / 2, h / 2, w * 0.3, h * 0.3, 0, {}, 1600};
    // One of each further kind, some turned, so the amplitude picture shows them all.
    Roi turned{2, "Rect", w * 0.22, h * 0.2, w * 0.14, h * 0.1, 25, {}, 2000};
    Roi disc{3, "Circle", w * 0.78, h * 0.5, w * 0.12, w * 0.12, 0, {}, 2000};
    Roi cell{4, "HoneycombShorter", w * 0.15, h * 0.45, w * 0.1, h * 0.16, 0, {}, 2000};
    Roi oval{5, "Ellipse", w * 0.5, h * 0.85, w * 0.18, h * 0.1, -20, {}, 2000};
    return {Model{1, {onBox, wall, corner, floor}}, Model{2, {centre, turned, disc, cell, oval}}};
}

QJsonObject roiJson(Roi const& roi, int index)
{
    QJsonObject o;
    o["type"] = roi.type;
    o["id"] = roi.id;
    o["center_x"] = roi.cx;
    o["center_y"] = roi.cy;
    o["width"] = roi.width;
    o["height"] = roi.height;
    o["angle"] = roi.angle;
    if (roi.type == "Poly") {
        QJsonArray points;
        for (QPointF const& p : roi.points)
            points.append(QJsonObject{{"x", p.x()}, {"y", p.y()}});
        o["points"] = points;
    }
    o["boundingBox"] = QJsonObject{{"x", roi.cx - roi.width / 2},
                                   {"y", roi.cy - roi.height / 2},
                                   {"width", roi.width},
                                   {"height", roi.height}};
    o["distance"] = roi.distanceMm + index;
    o["state"] = "good";
    return o;
}

QJsonObject timing(double mean)
{
    return QJsonObject{{"min", mean * 0.9}, {"max", mean * 1.2}, {"mean", mean}};
}

} // namespace

ResultDocument::ResultDocument(SyntheticScene const& scene, uint32_t id)
    : m_scene(scene), m_id(id), m_box(scene.box(id))
{}

std::string ResultDocument::modelJson() const
{
    QJsonObject root;
    root["ApplicationIndex"] = 1;
    bool passed = true;
    for (Model const& model : models(m_scene, m_box)) {
        QJsonObject rois;
        for (int i = 0; i < model.rois.size(); ++i)
            rois[QString::number(model.rois[i].id)] = roiJson(model.rois[i], int(m_id % 7));
        // Every fifth result has one ROI under its switch point, so the counters change.
        int const under = (model.id == 1 && m_id % 5 == 0) ? 1 : 0;
        passed = passed && under == 0;
        QJsonObject o{{"id", model.id},  {"ROIs", rois},         {"numGood", model.rois.size() - under},
                      {"numInvalid", 0}, {"numUnderSP1", under}, {"numOverSP2", 0}};
        root[QString("model_%1").arg(model.id, 3, 10, QChar('0'))] = o;
    }
    QJsonObject virtualOut;
    for (int i = 1; i <= 8; ++i)
        virtualOut[QString("byte%1").arg(i)] = int((m_id >> (8 * ((i - 1) % 4))) & 0xFF);
    root["ll_results"] = QJsonObject{
        {"digital_out", QJsonObject{{"values", QJsonArray{passed ? 1 : 0, 0, passed ? 0 : 1, 0}}}},
        {"virtual_out", virtualOut},
        {"statistics", QJsonObject{{"current_passed", passed}}}};
    uint32_t const failed = m_id / 5;
    root["adv_statistics"] = QJsonObject{{"number_of_frames", double(m_id)},
                                         {"number_of_passed_frames", double(m_id - failed)},
                                         {"number_of_failed_frames", double(failed)},
                                         {"number_of_aborted_frames", 0},
                                         {"frame_acquisition", timing(12.5)},
                                         {"frame_evaluation", timing(8.0)},
                                         {"frame_duration", timing(frameDurationUs() / 1000.0)}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact).toStdString();
}

std::string ResultDocument::diagnosticJson() const
{
    QJsonObject o{{"temperatureIllu", temperatureIllu()},
                  {"temperatureFrontend1", temperatureFrontend(1)},
                  {"temperatureFrontend2", temperatureFrontend(2)},
                  {"frameDuration", double(frameDurationUs())},
                  {"exposureTimes", QJsonArray{double(exposureTimeUs(1)), double(exposureTimeUs(2)),
                                               double(exposureTimeUs(3))}}};
    return QJsonDocument(o).toJson(QJsonDocument::Compact).toStdString();
}

std::vector<RoiMask> ResultDocument::masks() const
{
    std::vector<RoiMask> out;
    unsigned int const w = m_scene.width(), h = m_scene.height();
    for (Model const& model : models(m_scene, m_box)) {
        RoiMask mask{model.id, std::vector<unsigned char>(size_t(w) * h, 0)};
        for (unsigned int y = 0; y < h; ++y)
            for (unsigned int x = 0; x < w; ++x)
                for (Roi const& roi : model.rois)
                    if (inside(roi, x + 0.5, y + 0.5)) {
                        mask.pixels[size_t(y) * w + x] = static_cast<unsigned char>(roi.id);
                        break;
                    }
        out.push_back(std::move(mask));
    }
    return out;
}

double ResultDocument::temperatureIllu() const
{
    return 41.0 + (m_id % 10) * 0.07;
}

double ResultDocument::temperatureFrontend(int which) const
{
    return 35.5 + which + (m_id % 4) * 0.1;
}

unsigned int ResultDocument::frameDurationUs() const
{
    return 33000 + (m_id % 3) * 250;
}

unsigned int ResultDocument::exposureTimeUs(int which) const
{
    static unsigned int const base[3] = {1000, 250, 60};
    return base[(which - 1) % 3];
}

} // namespace camsim
