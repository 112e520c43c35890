// The format-results command with a real logger and result manager on a private Redis
// and frame directory, called with blocks made like the host's and freed like the host frees them.
#include <cstdlib>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RedisServer.h"
#include "ResourceUsage.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "format/VORNFormatResults.h"
#include "logger/RedisLogger.h"
#include "results/VORNResultManager.h"
#include "resultsync/FramePublisher.h"

using namespace orv;
using testing::Contains;

namespace {

class FormatCommandsTest : public testing::Test
{
protected:
    std::string format(char const* id, std::string const& json, int32_t busByteOrder = 0)
    {
        FormatResultsRequest request{{}, json.data(), static_cast<uint32_t>(json.size()), busByteOrder};
        strncpy(request.resultId, id, sizeof request.resultId);
        DataBlock block{reinterpret_cast<unsigned char*>(&request), {}, 26, {}};
        return reply(m_command.execute(&block));
    }
    // "reply code, status, flag, last word", then the output when the reply carries data.
    static std::string reply(DataBlock* block)
    {
        FormatResultsReply record{};
        memcpy(&record, block->data, sizeof record);
        std::string text = std::to_string(block->command) + " " + std::to_string(record.status) + " " +
                           std::to_string(record.hasData) + " " + std::to_string(record.reserved);
        if (record.data != nullptr)
            text += " " + std::string(reinterpret_cast<char const*>(record.data), record.size);
        free(record.data), free(block->data), free(block);
        return text;
    }
    test::RedisEnvironment m_redis;
    test::TempDir m_frameDir;
    test::ScopedEnv m_frames{"ORV_FRAME_DIR", m_frameDir.path()};
    Logger::RedisLogger m_logger{"KSCOM", getenv("ORV_REDIS_CACHE_SOCKET"), "LOG:ENTRIES", false};
    VORNResultManager m_manager{m_logger};
    VORNFormatResults m_command{m_manager, m_logger};
};

} // namespace

TEST_F(FormatCommandsTest, ServesARequestWithoutFormatAsAnEmptyOutputAndRejectsMalformedJsonWithoutData)
{
    EXPECT_EQ(format("7", R"({"other":1})"), "0 100000003 1 0 ");
    EXPECT_EQ(format("7", R"({"format":)"), "0 100000004 0 0");
    EXPECT_THAT(m_redis.cache().logMessages(),
                Contains("execute: An error occurred during parsing: unterminated object"));
    DataBlock noData{};
    EXPECT_EQ(reply(m_command.execute(&noData)), "0 100000003 0 0");
    EXPECT_EQ(reply(m_command.execute(nullptr)), "0 100000003 0 0");
}

TEST_F(FormatCommandsTest, WritesConstantsForAnUnknownResultAndLogsTheMissingModel)
{
    EXPECT_EQ(format("99", R"({"format":{"elements":[{"type":"string","value":"A"},
        {"type":"uint8","id":"nothing"},{"type":"blob","id":"distance_image"},{"type":"string","value":"Z"}]}})"),
              "0 100000003 1 0 A0Z");
    EXPECT_THAT(m_redis.cache().logMessages(), Contains("execute: getJsonModel(99) returned nullptr"));
}

TEST_F(FormatCommandsTest, TakesDeviceValuesBeforeTheTreeBlobsFromTheFrameAndTheBusOrderFromTheRequest)
{
    m_redis.cache().hset("result_5", "ModelResult", R"({"evaltime":1,"temp_imx6":44,"ApplicationIndex":2})");
    m_redis.cache().hset("result_5", "FrameDuration", "2500");
    resultsync::FramePublisher publisher(8, m_frameDir.path());
    ASSERT_TRUE(publisher.publish("5", {{"distance_image", "rest", 4}}));
    ASSERT_TRUE(m_manager.acquire("5"));
    std::string const json = R"({"format":{"elements":[{"type":"uint8","id":"temp_imx6"},
        {"type":"uint8","id":"activeapp_id"},
        {"type":"uint16","id":"evaltime","format":{"dataencoding":"binary","order":"busdepending"}},
        {"type":"blob","id":"distance_image"}]}})";

    // 2500 is 0x09C4; 4321 declares a big-endian bus, anything else a little-endian one.
    EXPECT_EQ(format("5", json, 4321), "0 100000003 1 0 442\x09\xC4rest");
    EXPECT_EQ(format("5", json, 1234), "0 100000003 1 0 442\xC4\x09rest");
}

TEST_F(FormatCommandsTest, GathersBlobsOfEveryKindInOrderAndLeavesOutAChunkItCannotNumber)
{
    for (char const* id : {"5", "x5"}) {
        m_redis.cache().hset(std::string("result_") + id, "ModelResult", R"({"ApplicationIndex":2})");
        m_redis.cache().hset(std::string("result_") + id, "DiagnosticData", R"({"d":1})");
    }
    std::string const distance(5000, 'd'), amplitude(6000, 'a'); // large enough to be referred to
    resultsync::FramePublisher publisher(8, m_frameDir.path());
    ASSERT_TRUE(publisher.publish(
        "5", {{"distance_image", distance.data(), 5000}, {"amplitude_image", amplitude.data(), 6000}}));
    ASSERT_TRUE(m_manager.acquire("5"));
    std::string const json = R"({"format":{"elements":[{"type":"string","value":"<"},
        {"type":"blob","id":"distance_image"},
        {"type":"string","value":"|"},{"type":"blob","id":"amplitude_image"},{"type":"string","value":"|"},
        {"type":"blob","id":"json_model"},{"type":"blob","id":"diagnostic_data"},
        {"type":"blob","id":"json_diagnostic"},{"type":"string","value":"|"}]}})";
    std::string const output = format("5", json);

    // The derived chunks as the result manager keeps them; the diagnostic text's is made here, as
    // the manager hands that one out once per result.
    auto kept = [](VORNResultManager::ResultData const* data) {
        return data ? std::string(static_cast<char const*>(data->data), size_t(data->size)) : "missing";
    };
    uint32_t const header[12] = {305, 48 + 7, 48, 2, 7, 1, 0, 0, 5, 0, 0, 0};
    std::string const diagnostic = std::string(reinterpret_cast<char const*>(header), 48) + R"({"d":1})";
    EXPECT_EQ(output, "0 100000003 1 0 <" + distance + "|" + amplitude + "|" +
                          kept(m_manager.getSerializedJsonModel("5")) +
                          kept(m_manager.getDiagnosticData("5")) + diagnostic + "|");

    ASSERT_TRUE(m_manager.release("5"));
    EXPECT_EQ(format("x5", json), "0 100000003 1 0 <|||");
    EXPECT_THAT(m_redis.cache().logMessages("ERROR"), Contains("getBlob(json_model): stoul"));
}

TEST_F(FormatCommandsTest, AnswersEachOfEverChangingDescriptionsWithoutTheHostGrowing)
{
    auto const request = [&](int i) {
        std::string const text = std::to_string(i);
        return format("7", R"({"format":{"elements":[{"type":"string","value":")" + text + R"("}]}})") ==
               "0 100000003 1 0 " + text;
    };
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(request(i));
    test::ResourceUsage const before = test::ResourceUsage::now();
    for (int i = 20; i < 220; ++i)
        ASSERT_TRUE(request(i % 10 == 0 ? 0 : i)); // one kept description among new ones
    EXPECT_LT((test::ResourceUsage::now() - before).heap, 2048);
}
