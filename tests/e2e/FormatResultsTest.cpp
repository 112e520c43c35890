// The format-results and validate commands through the built plug-in, as the host calls them, on a
// result published like the camera publishes one: a frame with an image, a Redis hash with the
// result model and the device's values, and a ROI mask file.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "DBusDaemon.h"
#include "PluginChild.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "format/VORNFormatResults.h"
#include "resultsync/FramePublisher.h"

using orv::test::ChildResult;
using orv::test::LoadedPlugin;

namespace {

char const* const resultId = "17";

char const* const model = R"({"ApplicationIndex":3,"neg":-5,"big":70000,"name":"cam\\x21",
    "ll_results":{"virtual_out":{"byte1":1,"byte8":128}},
    "model_001":{"numGood":1,"ROIs":{"10":{"v":1},"2":{"v":2}}},
    "model_002":{"numGood":0,"ROIs":{"5":{"v":3}}}})";

// Every number type as text and as bytes, little, big, network and bus-dependent order, text
// options, a nested models/ROIs list with ROI masks, the frame's image and constants.
char const* const description = R"({"elements":[
    {"type":"string","value":"<S>"},
    {"type":"int8","id":"neg"},
    {"type":"int8","id":"neg","format":{"dataencoding":"binary","order":"little"}},
    {"type":"int16","id":"temp_illu","format":{"scale":10}},
    {"type":"int16","id":"temp_illu","format":{"scale":10,"dataencoding":"binary","order":"big"}},
    {"type":"int32","id":"activeapp_id","format":{"width":4,"fill":"0"}},
    {"type":"int32","id":"activeapp_id","format":{"dataencoding":"binary","order":"busdepending"}},
    {"type":"uint8","id":"models.count"},
    {"type":"uint8","id":"models.count","format":{"dataencoding":"binary"}},
    {"type":"uint16","id":"evaltime","format":{"base":16}},
    {"type":"uint16","id":"evaltime","format":{"dataencoding":"binary","order":"network"}},
    {"type":"uint32","id":"big","format":{"width":7,"alignment":"left","fill":"_"}},
    {"type":"uint32","id":"big","format":{"dataencoding":"binary"}},
    {"type":"float32","id":"temp_front1","format":{"precision":2,"decimalseparator":","}},
    {"type":"float32","id":"temp_front1","format":{"dataencoding":"binary","order":"big"}},
    {"type":"int64","id":"neg","format":{"numericfill":true,"width":4}},
    {"type":"int64","id":"neg","format":{"dataencoding":"binary"}},
    {"type":"uint64","id":"virtual_outputs"},
    {"type":"uint64","id":"virtual_outputs","format":{"dataencoding":"binary","order":"busdepending"}},
    {"type":"string","id":"name","format":{"width":5}},
    {"type":"records","id":"models","format":{"dataencoding":"binary","order":"big"},"elements":[
        {"type":"string","value":";"},
        {"type":"uint8","id":"id","format":{"dataencoding":"ascii"}},
        {"type":"uint8","id":"allROIsGood"},
        {"type":"records","id":"rois","elements":[{"type":"uint16","id":"id"}]},
        {"type":"blob","id":"roimask"}]},
    {"type":"blob","id":"distance_image"},
    {"type":"blob","value":"0d0a"}]})";

std::string bytes(std::initializer_list<unsigned> list)
{
    std::string out;
    for (unsigned b : list)
        out += static_cast<char>(b);
    return out;
}

std::string le32(uint32_t v)
{
    return bytes({v & 0xFF, (v >> 8) & 0xFF, (v >> 16) & 0xFF, v >> 24});
}

std::string chunkHeader(uint32_t type, uint32_t dataSize, uint32_t width, uint32_t height,
                        uint32_t pixelFormat, uint32_t frameCount)
{
    return le32(type) + le32(48 + dataSize) + le32(48) + le32(2) + le32(width) + le32(height) +
           le32(pixelFormat) + le32(0) + le32(frameCount) + le32(0) + le32(0) + le32(0);
}

// A 2x2 image of 16-bit distances, as the camera publishes it.
std::string const distanceImage = chunkHeader(100, 8, 2, 2, 2, 17) + bytes({1, 0, 2, 0, 3, 0, 0xFF, 0xFF});
std::string const roiMask = bytes({0, 1, 1, 0});

// What the description must give, worked out by hand; bigBus is the client's bus order.
std::string expectedOutput(bool bigBus)
{
    std::string out = "<S>";
    out += "-5" + bytes({0xFB});
    out += "412" + bytes({0x01, 0x9C}); // 41.27 * 10, truncated
    out += "0003" + (bigBus ? bytes({0, 0, 0, 3}) : bytes({3, 0, 0, 0}));
    out += "2" + bytes({2});
    out += "9c4" + bytes({0x09, 0xC4}); // 2500
    out += "70000__" + bytes({0x70, 0x11, 0x01, 0x00});
    out += "-3,50" + bytes({0xC0, 0x60, 0x00, 0x00}); // -3.5f
    out += "-005" + bytes({0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    out += "9223372036854775809"; // 2^63 + 1
    out += bigBus ? bytes({0x80, 0, 0, 0, 0, 0, 0, 1}) : bytes({1, 0, 0, 0, 0, 0, 0, 0x80});
    out += " cam!";
    // Models in key order; ROIs by number, as big-endian 16-bit words; only model 1 has a mask.
    out += ";1" + bytes({1}) + bytes({0, 2, 0, 10}) + chunkHeader(501, 4, 0, 0, 7, 1) + roiMask;
    out += ";2" + bytes({0}) + bytes({0, 5});
    out += distanceImage;
    out += "\r\n";
    return out;
}

void sendWord(LoadedPlugin& plugin, uint32_t word)
{
    plugin.send(&word, sizeof word);
}

uint32_t readWord(std::string const& data, size_t& at)
{
    uint32_t word = 0;
    if (at + 4 <= data.size())
        memcpy(&word, data.data() + at, 4);
    at += 4;
    return word;
}

// Acquires the result, formats it with both bus orders, validates the description, and sends back
// each reply's status, flag and output.
int formatInChild(LoadedPlugin& plugin)
{
    void* handle = plugin.init();
    DataBlock* acquired = plugin.request(handle, 4, resultId);
    int32_t acquireStatus = -1;
    if (acquired != nullptr && acquired->data != nullptr)
        memcpy(&acquireStatus, acquired->data, 4);
    LoadedPlugin::freeReply(acquired);
    sendWord(plugin, static_cast<uint32_t>(acquireStatus));

    std::string const request = std::string(R"({"format":)") + description + "}";
    for (int32_t order : {4321, 1234}) {
        orv::FormatResultsRequest record{};
        strcpy(record.resultId, resultId);
        record.json = request.data();
        record.jsonLength = static_cast<uint32_t>(request.size());
        record.busByteOrder = order;
        DataBlock* reply = plugin.request(handle, 26, &record);
        orv::FormatResultsReply result{};
        if (reply != nullptr && reply->data != nullptr)
            memcpy(&result, reply->data, sizeof result);
        sendWord(plugin, static_cast<uint32_t>(result.status));
        sendWord(plugin, result.hasData);
        sendWord(plugin, result.size);
        if (result.data != nullptr)
            plugin.send(result.data, result.size);
        free(result.data);
        LoadedPlugin::freeReply(reply);
    }

    DataBlock* validated = plugin.request(handle, 27, description);
    int32_t validStatus = -1;
    if (validated != nullptr && validated->data != nullptr)
        memcpy(&validStatus, validated->data, 4);
    LoadedPlugin::freeReply(validated);
    sendWord(plugin, static_cast<uint32_t>(validStatus));

    LoadedPlugin::freeReply(plugin.request(handle, 5, resultId));
    return 0;
}

} // namespace

TEST(FormatResults, WritesASimulatedCameraResultByteForByteThroughTheLoadedPlugin)
{
    orv::test::RedisEnvironment redis;
    orv::test::DBusDaemon bus;
    orv::test::TempDir frames("kv-frames");
    orv::test::TempDir run("kv-run");
    orv::test::ScopedEnv frameDir("ORV_FRAME_DIR", frames.path());
    orv::test::ScopedEnv runDir("ORV_IMAGER_RUN_DIR", run.path());
    orv::test::ScopedEnv schemaDir("ORV_VORN_SCHEMA_DIR", KV_SOURCE_DIR "/schema");

    std::string const hash = std::string("result_") + resultId;
    redis.cache().hset(hash, "ModelResult", model);
    redis.cache().hset(hash, "TemperatureIllu", "41.27");
    redis.cache().hset(hash, "TemperatureFrontend1", "-3.5");
    redis.cache().hset(hash, "FrameDuration", "2500");
    ASSERT_EQ(system(("mkdir -p " + run.file(resultId)).c_str()), 0);
    std::ofstream(run.file(std::string(resultId) + "/roimask_1"), std::ios::binary) << roiMask;
    orv::resultsync::FramePublisher publisher(8, frames.path());
    ASSERT_TRUE(publisher.publish(
        resultId, {{"distance_image", distanceImage.data(), static_cast<uint32_t>(distanceImage.size())}}));

    ChildResult const child = orv::test::runWithPlugin(formatInChild);
    ASSERT_TRUE(child.exited) << child.errors;
    ASSERT_EQ(child.exitCode, 0) << child.errors;

    size_t at = 0;
    EXPECT_EQ(readWord(child.output, at), 0u) << "acquire";
    for (bool bigBus : {true, false}) {
        EXPECT_EQ(readWord(child.output, at), 100000003u) << "the served status";
        EXPECT_EQ(readWord(child.output, at), 1u) << "the data flag";
        uint32_t const size = readWord(child.output, at);
        ASSERT_LE(at + size, child.output.size());
        std::string const output = child.output.substr(at, size);
        at += size;
        EXPECT_EQ(output, expectedOutput(bigBus)) << (bigBus ? "big-endian bus" : "little-endian bus");
    }
    EXPECT_EQ(readWord(child.output, at), 0u) << "validate";
    EXPECT_EQ(at, child.output.size());
}
