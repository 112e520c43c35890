#include "ResultDocument.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace camsim {
namespace {

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
    if (roi.type == "Regular")
        o["points"] = roi.corners;
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

ResultDocument::ResultDocument(SyntheticScene const& scene, RoiLayout const& layout, uint32_t id)
    : m_scene(scene), m_layout(layout), m_id(id), m_box(scene.box(id))
{}

std::string ResultDocument::modelJson() const
{
    QJsonObject root;
    root["ApplicationIndex"] = 1;
    bool passed = true;
    for (Model const& model : m_layout.models(m_scene, m_box)) {
        QJsonObject rois;
        for (int i = 0; i < model.rois.size(); ++i)
            rois[QString::number(model.rois[i].id)] = roiJson(model.rois[i], int(m_id % 7));
        // Every fifth result has one ROI under its switch point, so the counters change.
        int const under = (model.id == 1 && !model.rois.isEmpty() && m_id % 5 == 0) ? 1 : 0;
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
    for (Model const& model : m_layout.models(m_scene, m_box)) {
        RoiMask mask{model.id, std::vector<unsigned char>(size_t(w) * h, 0)};
        for (unsigned int y = 0; y < h; ++y)
            for (unsigned int x = 0; x < w; ++x)
                for (Roi const& roi : model.rois)
                    if (RoiLayout::inside(roi, x + 0.5, y + 0.5)) {
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
