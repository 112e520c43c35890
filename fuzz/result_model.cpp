// A result model as the camera stores it ("ModelResult"): through the model, every id of the record
// views at every level, and the ROI renderer drawing it onto a picture.
#include <cstdint>
#include <cstdlib>

#include <QImage>
#include <QSharedPointer>

#include "format/RecordListInterface.h"
#include "format/RecordMain.h"
#include "results/ResultModel.h"
#include "roi/RoiSyncer_RX7100.h"

namespace {

char const* const recordIds[] = {"id", "rois.count", "allROIsGood", "bounding_box_x", "numGood"};

void walk(QSharedPointer<RecordListInterface> const& list)
{
    for (int i = 0; list && i < list->size(); ++i) {
        if (QSharedPointer<RecordInterface> record = list->getRecord(i)) {
            for (char const* id : recordIds)
                record->getValue(id);
            record->getBlob("roimask");
            walk(record->getSubRecords("rois"));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static bool const quiet = [] {
        setenv("ORV_IMAGER_RUN_DIR", "/nonexistent", 1);
        qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {});
        return true;
    }();
    (void)quiet;
    QByteArray text(reinterpret_cast<char const*>(data), static_cast<int>(size));
    ResultModel model;
    model.parse(text);
    model.serialize();
    QVariant found;
    model.getRecursive("ROIs", found);

    orv::RecordMain main(nullptr, model, "7");
    for (char const* id : {"models.count", "digital_outputs", "virtual_outputs", "current_passed",
                           "activeapp_id", "statistics_overall_count", "statistics_frame_duration_max",
                           "statistics_evaluation_time_median", "id"})
        main.getValue(id);
    walk(main.getSubRecords("models"));

    QImage picture(176, 132, QImage::Format_Grayscale8);
    picture.fill(0);
    orv::RoiSyncer_RX7100 rois;
    rois.loadFromJson(text);
    rois.paintRois(picture);
    return 0;
}
