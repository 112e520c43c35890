#include <cstring>
#include <fstream>

#include <gtest/gtest.h>

#include "MessageCapture.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "format/RecordListInterface.h"
#include "format/RecordMain.h"
#include "format/RecordModel.h"
#include "results/ResultModel.h"

using orv::RecordMain;
using orv::RecordModel;
using orv::test::MessageCapture;

namespace {

ResultModel parse(char const* json)
{
    QByteArray text(json);
    ResultModel model;
    EXPECT_TRUE(model.parse(text)) << json;
    return model;
}

class RecordsTest : public testing::Test
{
protected:
    QSharedPointer<RecordInterface> mainRecord(char const* json)
    {
        return QSharedPointer<RecordMain>::create(nullptr, parse(json), "42");
    }
    // The models of a result, each read through the list as the layouter reads it.
    QList<QSharedPointer<RecordInterface>> models(char const* json)
    {
        QList<QSharedPointer<RecordInterface>> records;
        auto const list = mainRecord(json)->getSubRecords("models");
        for (int i = 0; list && i < list->size(); ++i)
            records << list->getRecord(i);
        return records;
    }
};

} // namespace

TEST_F(RecordsTest, ListsModelsInKeyOrderWithTheNumberOfTheirLastThreeCharacters)
{
    auto const list =
        models(R"({"model_012":{"a":1},"model_001":{"a":2},"model_7":{"a":3},"Model_002":{"a":4},
                                 "other":{"a":5}})");
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(list[0]->getValue("id"), 1);
    EXPECT_EQ(list[1]->getValue("id"), 12);
    EXPECT_EQ(list[2]->getValue("id"), 0);
    EXPECT_EQ(list[2]->getValue("a"), 3.0);

    auto const main = mainRecord(R"({"model_001":{"a":1},"model_002":{"a":2}})");
    EXPECT_EQ(main->getValue("models.count"), 2);
    EXPECT_EQ(mainRecord(R"({"x":1})")->getValue("models.count"), 0);
    auto const same = main->getSubRecords("models");
    EXPECT_EQ(same, main->getSubRecords("models"));
    EXPECT_TRUE(same->getRecord(-1).isNull());
    EXPECT_TRUE(same->getRecord(2).isNull());
    EXPECT_TRUE(main->getSubRecords("rois").isNull());
}

TEST_F(RecordsTest, BuildsVirtualOutputsFromEightMaskedBytesWithByteEightMostSignificant)
{
    EXPECT_EQ(mainRecord(R"({"ll_results":{"virtual_out":{"byte1":511}}})")
                  ->getValue("virtual_outputs")
                  .toULongLong(),
              255u);
    EXPECT_EQ(mainRecord(R"({"ll_results":{"virtual_out":{"byte8":1}}})")
                  ->getValue("virtual_outputs")
                  .toULongLong(),
              1ULL << 56);
    EXPECT_EQ(mainRecord(R"({"ll_results":{"virtual_out":{"byte1":1,"byte2":2,"byte3":3}}})")
                  ->getValue("virtual_outputs")
                  .toULongLong(),
              0x030201u);
}

TEST_F(RecordsTest, ReadsTheMainRecordsNamedValuesFromTheirNestedPlaces)
{
    auto const main = mainRecord(R"({"ApplicationIndex":3,
        "ll_results":{"statistics":{"current_passed":true},"digital_out":{"values":[1,0,1]}},
        "adv_statistics":{"number_of_frames":10,"number_of_passed_frames":7,"number_of_failed_frames":2,
                          "number_of_aborted_frames":1,"frame_acquisition":{"min":1,"max":3,"mean":2},
                          "frame_evaluation":{"min":4,"max":6,"mean":5},"frame_duration":{"min":7,"max":9,"mean":8}},
        "statistics_acquisition_time_median":99})");

    EXPECT_EQ(main->getValue("activeapp_id"), 3.0);
    EXPECT_EQ(main->getValue("current_passed"), true);
    EXPECT_EQ(main->getValue("digital_outputs").toList().size(), 3);
    EXPECT_EQ(main->getValue("statistics_overall_count"), 10.0);
    EXPECT_EQ(main->getValue("statistics_passed_count"), 7.0);
    EXPECT_EQ(main->getValue("statistics_failed_count"), 2.0);
    EXPECT_EQ(main->getValue("statistics_aborted_count"), 1.0);
    EXPECT_EQ(main->getValue("statistics_acquisition_time_mean"), 2.0);
    EXPECT_EQ(main->getValue("statistics_evaluation_time_max"), 6.0);
    EXPECT_EQ(main->getValue("statistics_frame_duration_min"), 7.0);
    // An ending that is no timing goes to the plain lookup of the whole id.
    EXPECT_EQ(main->getValue("statistics_acquisition_time_median"), 99.0);
    EXPECT_EQ(
        mainRecord(R"({"ll_results":{"statistics":{"current_passed":false}}})")->getValue("current_passed"),
        false);
    EXPECT_EQ(mainRecord(R"({"ll_results":{}})")->getValue("current_passed"), false);
}

TEST_F(RecordsTest, TellsMissingValuesOnTheDebugChannel)
{
    MessageCapture messages;
    EXPECT_FALSE(mainRecord(R"({"a":1})")->getValue("nothing").isValid());
    EXPECT_FALSE(mainRecord(R"({"a":1})")->getValue("statistics_bogus").isValid());
    EXPECT_FALSE(mainRecord(R"({"a":1})")->getValue("statistics_overall_count").isValid());
    auto const model = models(R"({"model_001":{"ROIs":{"1":{"x":1}}}})").value(0);
    ASSERT_TRUE(model);
    EXPECT_FALSE(model->getValue("nothing").isValid());
    EXPECT_FALSE(model->getSubRecords("rois")->getRecord(0)->getValue("nothing").isValid());
    EXPECT_TRUE(mainRecord(R"({"a":1})")->getBlob("distance_image").isEmpty());

    EXPECT_EQ(messages.ofLevel("debug"),
              QStringList({"Main ResultModel doesn't contain id: \"nothing\"",
                           "Main ResultModel doesn't contain id: \"statistics_bogus\"",
                           "Model ResultModel doesn't contain id: \"nothing\"",
                           "ROI ResultModel doesn't contain id: \"nothing\""}));
}

TEST_F(RecordsTest, AModelIsGoodOnlyWithGoodROIsAndNoFaults)
{
    auto allGood = [this](char const* counters) {
        std::string const json = std::string(R"({"model_001":)") + counters + "}";
        return models(json.c_str()).value(0)->getValue("allROIsGood").toBool();
    };
    MessageCapture quiet;
    EXPECT_TRUE(allGood(R"({"numGood":2,"numInvalid":0,"numUnderSP1":0,"numOverSP2":0})"));
    EXPECT_TRUE(allGood(R"({"numGood":1})"));
    EXPECT_FALSE(allGood(R"({"numGood":0,"numInvalid":0,"numUnderSP1":0,"numOverSP2":0})"));
    EXPECT_FALSE(allGood(R"({"numGood":2,"numInvalid":1})"));
    EXPECT_FALSE(allGood(R"({"numGood":2,"numUnderSP1":1})"));
    EXPECT_FALSE(allGood(R"({"numGood":2,"numOverSP2":3})"));
    EXPECT_FALSE(allGood(R"({"other":1})"));
}

TEST_F(RecordsTest, ListsROIsInNumericOrderWithUpdatesInPlaceButNewOnesUnlisted)
{
    auto const model = models(R"({"model_001":{
        "ROIs":{"10":{"v":10},"9":{"v":9},"2":{"v":2,"boundingBox":{"x":5,"y":6}}},
        "ROIsUpdated":{"ROIs":[{"id":9,"v":90},{"id":77,"v":77}]}}})")
                           .value(0);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->getValue("rois.count"), 3);
    auto const rois = model->getSubRecords("rois");
    ASSERT_EQ(rois->size(), 3);
    EXPECT_EQ(rois->getRecord(0)->getValue("id"), 2);
    EXPECT_EQ(rois->getRecord(0)->getValue("bounding_box_y"), 6.0);
    EXPECT_EQ(rois->getRecord(1)->getValue("id"), 9);
    EXPECT_EQ(rois->getRecord(1)->getValue("v"), 90.0);
    EXPECT_EQ(rois->getRecord(2)->getValue("id"), 10);
    EXPECT_TRUE(rois->getRecord(3).isNull());
    EXPECT_TRUE(rois->getRecord(0)->getSubRecords("rois").isNull());
    EXPECT_TRUE(rois->getRecord(0)->getBlob("roimask").isEmpty());

    MessageCapture messages;
    auto const bare = models(R"({"model_002":{"x":1}})").value(0);
    EXPECT_EQ(bare->getSubRecords("rois")->size(), 0);
    EXPECT_EQ(messages.ofLevel("warning"),
              QStringList({"Requested RecordListROIs, but the model has no ROIs"}));
}

TEST_F(RecordsTest, ReadsTheROIMaskFileBehindAChunkHeader)
{
    orv::test::TempDir runDir;
    orv::test::ScopedEnv env("ORV_IMAGER_RUN_DIR", runDir.path());
    ASSERT_EQ(system(("mkdir -p " + runDir.file("42")).c_str()), 0);
    std::ofstream(runDir.file("42/roimask_12"), std::ios::binary) << std::string("\x01\x00\x02", 3);

    auto const model = models(R"({"model_012":{"a":1},"model_013":{"a":1}})");
    QByteArray const blob = model.value(0)->getBlob("roimask");
    ASSERT_EQ(blob.size(), 51);
    uint32_t words[12];
    memcpy(words, blob.constData(), sizeof words);
    uint32_t const expected[12] = {501, 51, 48, 2, 0, 0, 7, 0, 12, 0, 0, 0};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(words[i], expected[i]) << "word " << i;
    EXPECT_EQ(blob.mid(48), QByteArray("\x01\x00\x02", 3));
    EXPECT_TRUE(model.value(0)->getBlob("other").isEmpty());

    MessageCapture messages;
    EXPECT_TRUE(model.value(1)->getBlob("roimask").isEmpty());
    EXPECT_EQ(messages.ofLevel("debug"),
              QStringList(
                  {QString("Couldn't find roimask file \"%1\"").arg(runDir.file("42/roimask_13").c_str())}));
}
