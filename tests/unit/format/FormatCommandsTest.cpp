#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MessageCapture.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "core/VornStatus.h"
#include "format/VORNFormatResults.h"
#include "format/VornFormatterJsonValidator.h"
#include "logger/RedisLogger.h"
#include "results/VORNResultManager.h"

using orv::FormatResultsReply;
using orv::FormatResultsRequest;
using orv::Logger::RedisLogger;
using orv::test::MessageCapture;
using testing::HasSubstr;

namespace {

// The command with a real logger and result manager on a private Redis and frame directory.
class FormatCommandsTest : public testing::Test
{
protected:
    FormatCommandsTest()
        : m_frames("ORV_FRAME_DIR", m_frameDir.path()),
          m_schema("ORV_VORN_SCHEMA_DIR", KV_SOURCE_DIR "/schema"),
          m_logger("KSCOM", getenv("ORV_REDIS_CACHE_SOCKET"), "LOG:ENTRIES", false), m_manager(m_logger),
          m_command(m_manager, m_logger), m_validator(m_logger)
    {}

    // Sends a format request and keeps the reply's status, output and flag; frees like the host.
    struct Result
    {
        int32_t status = 0;
        bool hasPayload = false;
        std::string output;
        uint32_t flag = 0;
        bool dataNull = true;
    };
    Result format(char const* id, std::string const& json, int32_t byteOrder = 0)
    {
        FormatResultsRequest request{};
        strncpy(request.resultId, id, sizeof request.resultId);
        request.json = json.data();
        request.jsonLength = static_cast<uint32_t>(json.size());
        request.busByteOrder = byteOrder;
        DataBlock block{};
        block.command = 26;
        block.data = reinterpret_cast<unsigned char*>(&request);
        return collect(m_command.execute(&block));
    }
    static Result collect(DataBlock* reply)
    {
        Result result;
        EXPECT_NE(reply, nullptr);
        if (reply == nullptr)
            return result;
        EXPECT_EQ(reply->command, 0);
        if (reply->data != nullptr) {
            FormatResultsReply record;
            memcpy(&record, reply->data, sizeof record);
            result.hasPayload = true;
            result.status = record.status;
            result.flag = record.hasData;
            result.dataNull = record.data == nullptr;
            if (record.data != nullptr)
                result.output.assign(reinterpret_cast<char const*>(record.data), record.size);
            free(record.data);
        }
        free(reply->data);
        free(reply);
        return result;
    }
    int32_t validate(char const* text)
    {
        DataBlock block{};
        block.command = 27;
        block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(text));
        DataBlock* reply = m_validator.execute(&block);
        EXPECT_NE(reply, nullptr);
        int32_t status = -1;
        if (reply != nullptr && reply->data != nullptr)
            memcpy(&status, reply->data, sizeof status);
        if (reply != nullptr)
            free(reply->data);
        free(reply);
        return status;
    }
    std::string lastLogMessage()
    {
        auto const entries = m_redis.cache().lrange("LOG:ENTRIES", -1, -1);
        return entries.empty() ? std::string() : entries.back();
    }

    orv::test::RedisEnvironment m_redis;
    orv::test::TempDir m_frameDir;
    orv::test::ScopedEnv m_frames;
    orv::test::ScopedEnv m_schema;
    RedisLogger m_logger;
    orv::VORNResultManager m_manager;
    orv::VORNFormatResults m_command;
    orv::VornFormatterJsonValidator m_validator;
};

} // namespace

TEST(FormatRecords, HaveTheDocumentedLayoutOnEveryPointerSize)
{
    size_t const p = sizeof(void*);
    size_t const jsonAt = (12 + p - 1) / p * p; // the pointer is aligned to its own size
    EXPECT_EQ(offsetof(FormatResultsRequest, json), jsonAt);
    EXPECT_EQ(offsetof(FormatResultsRequest, jsonLength), jsonAt + p);
    EXPECT_EQ(offsetof(FormatResultsRequest, busByteOrder), jsonAt + p + 4);
    EXPECT_EQ(offsetof(FormatResultsReply, data), p);
    EXPECT_EQ(offsetof(FormatResultsReply, size), 2 * p);
    EXPECT_EQ(offsetof(FormatResultsReply, hasData), 2 * p + 4);
    EXPECT_EQ(offsetof(FormatResultsReply, reserved), 2 * p + 8);
}

TEST_F(FormatCommandsTest, ServesARequestWithoutFormatAsAnEmptyOutput)
{
    Result const r = format("7", R"({"other":1})");
    EXPECT_EQ(r.status, orv::VornStatus::GenericFailure);
    EXPECT_EQ(r.flag, 1u);
    EXPECT_FALSE(r.dataNull);
    EXPECT_EQ(r.output, "");
}

TEST_F(FormatCommandsTest, RejectsMalformedJsonAndKeepsTheGenericStatusWithoutAPayload)
{
    Result const r = format("7", R"({"format":)");
    EXPECT_EQ(r.status, orv::VornStatus::RejectedArgument);
    EXPECT_TRUE(r.dataNull);
    EXPECT_EQ(r.flag, 0u);
    EXPECT_THAT(lastLogMessage(), HasSubstr("execute: An error occurred during parsing: "));

    DataBlock empty{};
    Result const none = collect(m_command.execute(&empty));
    EXPECT_EQ(none.status, orv::VornStatus::GenericFailure);
    EXPECT_TRUE(none.dataNull);
}

TEST_F(FormatCommandsTest, WritesConstantsForAnUnknownResultAndLogsTheMissingModel)
{
    MessageCapture quiet;
    Result const r = format("99", R"({"format":{"elements":[{"type":"string","value":"A"},
        {"type":"uint8","id":"nothing"},{"type":"blob","id":"distance_image"},{"type":"string","value":"Z"}]}})");
    EXPECT_EQ(r.status, orv::VornStatus::GenericFailure);
    EXPECT_EQ(r.output, "A0Z");
    auto const entries = m_redis.cache().lrange("LOG:ENTRIES");
    bool logged = false;
    for (auto const& entry : entries)
        logged = logged || entry.find("execute: getJsonModel(99) returned nullptr") != std::string::npos;
    EXPECT_TRUE(logged);
}

TEST_F(FormatCommandsTest, TakesDeviceValuesBeforeTheResultTreeAndTheBusOrderFromTheRequest)
{
    m_redis.cache().hset("result_5", "ModelResult", R"({"evaltime":1,"temp_imx6":44,"ApplicationIndex":2})");
    m_redis.cache().hset("result_5", "FrameDuration", "2500");
    MessageCapture quiet;
    std::string const json = R"({"format":{"elements":[
        {"type":"uint16","id":"evaltime","format":{"dataencoding":"binary","order":"busdepending"}},
        {"type":"uint8","id":"temp_imx6"},{"type":"uint8","id":"activeapp_id"}]}})";

    EXPECT_EQ(format("5", json, 4321).output, std::string("\x09\xC4"
                                                          "442",
                                                          5));
    EXPECT_EQ(format("5", json, 1234).output, std::string("\xC4\x09"
                                                          "442",
                                                          5));
}

TEST_F(FormatCommandsTest, ValidatesDescriptionsAndLogsWhyOneIsRejected)
{
    EXPECT_EQ(validate(R"({"elements":[{"type":"string","value":"x"}]})"), orv::VornStatus::Success);
    EXPECT_EQ(validate(R"({"elements":[{"type":"uint8","id":"x","format":{"base":1}}]})"),
              orv::VornStatus::RejectedArgument);
    EXPECT_THAT(lastLogMessage(),
                HasSubstr("execute: Validation error: at #\\/elements\\/0\\/format\\/base"));
    MessageCapture quiet;
    EXPECT_EQ(validate(""), orv::VornStatus::RejectedArgument);

    DataBlock empty{};
    DataBlock* reply = m_validator.execute(&empty);
    ASSERT_NE(reply, nullptr);
    int32_t status = 0;
    memcpy(&status, reply->data, sizeof status);
    EXPECT_EQ(status, orv::VornStatus::RejectedArgument);
    free(reply->data);
    free(reply);
}
