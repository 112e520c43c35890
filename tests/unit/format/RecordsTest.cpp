// The record views over a parsed result: value ids, the lists and their order, the roimask chunk.
#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "MessageCapture.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "format/RecordListInterface.h"
#include "format/RecordMain.h"
#include "results/ResultModel.h"

using orv::test::MessageCapture;

namespace {

QSharedPointer<RecordInterface> mainRecord(char const* json)
{
    QByteArray text(json);
    ResultModel model;
    EXPECT_TRUE(model.parse(text)) << json;
    return QSharedPointer<orv::RecordMain>::create(nullptr, model, "42");
}

} // namespace

TEST(RecordViews, ListModelsInKeyOrderNumberedByTheLastThreeCharactersAndGoodOnlyWithoutFaults)
{
    MessageCapture quiet;
    auto const models = mainRecord(R"({"model_001":{"numGood":1,"ROIs":{"10":{"v":1},"9":{"v":2},"2":{"v":3}},
            "ROIsUpdated":{"ROIs":[{"id":9,"v":4},{"id":5,"v":5}]}},
        "model_002":{"numGood":0}, "model_003":{"numGood":2,"numInvalid":1},
        "model_004":{"numGood":2,"numUnderSP1":1}, "model_005":{"numGood":2,"numOverSP2":3},
        "model_012":{"x":1}, "model_7":{"numGood":1}, "Model_006":{"numGood":1}, "other":{"numGood":1}})")
                            ->getSubRecords("models");
    ASSERT_EQ(models->size(), 7);
    std::pair<int, bool> const idAndGood[] = {{1, true},  {2, false},  {3, false}, {4, false},
                                              {5, false}, {12, false}, {0, true}};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(models->getRecord(i)->getValue("id"), idAndGood[i].first) << i;
        EXPECT_EQ(models->getRecord(i)->getValue("allROIsGood"), idAndGood[i].second) << i;
    }
    EXPECT_TRUE(models->getRecord(-1).isNull() && models->getRecord(7).isNull());
    // ROIs in numeric order of their keys; an update replaces a listed ROI and adds none.
    auto const rois = models->getRecord(0)->getSubRecords("rois");
    QStringList listed;
    for (int i = 0; i < rois->size(); ++i)
        listed << rois->getRecord(i)->getValue("id").toString() + ":" +
                      rois->getRecord(i)->getValue("v").toString();
    EXPECT_EQ(listed, QStringList({"2:3", "9:4", "10:1"}));
    EXPECT_TRUE(rois->getRecord(-1).isNull() && rois->getRecord(3).isNull());
}

TEST(RecordViews, TheMainRecordReadsItsNamedValuesFromTheirPlacesInTheResult)
{
    auto const main = mainRecord(R"({"ApplicationIndex":3,"model_001":{"a":1},"model_002":{"a":1},
        "ll_results":{"statistics":{"current_passed":true},"digital_out":{"values":[1,0]},
                      "virtual_out":{"byte1":511,"byte2":2,"byte8":1,"byte9":7}},
        "adv_statistics":{"number_of_frames":10,"frame_acquisition":{"min":1,"max":3,"mean":2},
            "frame_evaluation":{"min":4,"max":6,"mean":5},"frame_duration":{"min":7,"max":9,"mean":8}},
        "statistics_acquisition_time_median":99})");
    std::pair<char const*, QVariant> const cases[] = {
        {"models.count", 2},
        {"activeapp_id", 3.0},
        {"current_passed", true},
        {"digital_outputs", QVariantList{1.0, 0.0}},
        {"virtual_outputs", qulonglong(0x01000000000002FF)}, // bytes masked, "byte8" first, no "byte9"
        {"statistics_overall_count", 10.0},
        {"statistics_acquisition_time_mean", 2.0},
        {"statistics_evaluation_time_max", 6.0},
        {"statistics_frame_duration_min", 7.0},
        {"statistics_acquisition_time_median", 99.0}, // no timing ending: the plain lookup
        {"statistics_bogus", QVariant()},
        {"nothing", QVariant()},
    };
    MessageCapture messages;
    for (auto const& [id, expected] : cases)
        EXPECT_EQ(main->getValue(id), expected) << id;
    EXPECT_EQ(messages.all(), QStringList({"debug: Main ResultModel doesn't contain id: \"statistics_bogus\"",
                                           "debug: Main ResultModel doesn't contain id: \"nothing\""}));
}

TEST(RecordViews, AModelsROIMaskIsTheMaskFileOfItsResultBehindAChunkHeader)
{
    orv::test::TempDir runDir;
    orv::test::ScopedEnv env("ORV_IMAGER_RUN_DIR", runDir.path());
    ASSERT_EQ(mkdir(runDir.file("42").c_str(), 0700), 0);
    std::ofstream(runDir.file("42/roimask_12"), std::ios::binary) << std::string("\1\0\2", 3);
    auto const models = mainRecord(R"({"model_012":{"a":1},"model_013":{"a":1}})")->getSubRecords("models");

    // Little-endian words: type 501, size 48 + 3, header size 48, version 2, pixel format 7, model id.
    uint32_t const header[12] = {501, 51, 48, 2, 0, 0, 7, 0, 12, 0, 0, 0};
    EXPECT_EQ(models->getRecord(0)->getBlob("roimask"),
              QByteArray(reinterpret_cast<char const*>(header), 48) + QByteArray("\1\0\2", 3));
    MessageCapture messages;
    EXPECT_TRUE(models->getRecord(1)->getBlob("roimask").isEmpty());
    QString const missing = QString::fromStdString(runDir.file("42/roimask_13"));
    EXPECT_EQ(messages.all(), QStringList({"debug: Couldn't find roimask file \"" + missing + "\""}));
}
