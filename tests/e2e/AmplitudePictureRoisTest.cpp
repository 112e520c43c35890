// The amplitude picture through the built plug-in shows the result model's regions of interest:
// a result published like the camera publishes one, its picture asked for as a client asks for it.
#include <cstdint>
#include <cstring>
#include <string>

#include <QImage>

#include <gtest/gtest.h>

#include "DBusDaemon.h"
#include "PluginChild.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "core/ChunkHeader.h"
#include "results/VORNResultRecords.h"
#include "resultsync/FramePublisher.h"

using orv::test::ChildResult;
using orv::test::LoadedPlugin;

namespace {

char const* const resultId = "23";
int const Width = 64;
int const Height = 48;

// A turned-free rectangle whose top edge runs through pixel row 10 and a circle whose top is
// pixel (46, 20), in two models.
char const* const model = R"({"ApplicationIndex":1,
    "model_001":{"ROIs":{"1":{"type":"Rect","id":1,"center_x":20.5,"center_y":16.5,"width":20,"height":12,"angle":0}}},
    "model_002":{"ROIs":{"4":{"type":"Circle","id":4,"center_x":46.5,"center_y":30.5,"width":20}}}})";

std::string amplitudeChunk()
{
    orv::ChunkHeader header;
    header.chunkType = 100;
    header.chunkSize = uint32_t(sizeof header + Width * Height * 2);
    header.width = Width;
    header.height = Height;
    header.pixelFormat = 2;
    std::string chunk(reinterpret_cast<char const*>(&header), sizeof header);
    for (int i = 0; i < Width * Height; ++i)
        chunk += std::string("\x10\x02", 2); // 528 everywhere
    return chunk;
}

// Acquires the result and sends back the PNG chunk of its amplitude picture.
int pictureInChild(LoadedPlugin& plugin)
{
    void* handle = plugin.init();
    LoadedPlugin::freeReply(plugin.request(handle, 4, resultId));
    orv::VORNQueryProcessData_t query{};
    strcpy(query.key, "z4_amplitude_png");
    strcpy(query.id, resultId);
    DataBlock* reply = plugin.request(handle, 2, &query);
    if (reply == nullptr || reply->data == nullptr)
        return 2;
    orv::VORNResultData_t record;
    memcpy(&record, reply->data, sizeof record);
    if (record.status == 0 && record.data != nullptr)
        plugin.send(record.data, record.size);
    LoadedPlugin::freeReply(reply);
    LoadedPlugin::freeReply(plugin.request(handle, 5, resultId));
    return record.status == 0 ? 0 : 3;
}

} // namespace

TEST(AmplitudePicture, OutlinesTheRoisOfEveryModelThroughTheLoadedPlugin)
{
    orv::test::RedisEnvironment redis;
    orv::test::DBusDaemon bus;
    orv::test::TempDir frames("kv-frames");
    orv::test::ScopedEnv frameDir("ORV_FRAME_DIR", frames.path());
    redis.cache().hset(std::string("result_") + resultId, "ModelResult", model);
    std::string const amplitude = amplitudeChunk();
    orv::resultsync::FramePublisher publisher(8, frames.path());
    ASSERT_TRUE(publisher.publish(resultId, {{"normalized_amplitude_image", amplitude.data(),
                                              static_cast<uint32_t>(amplitude.size())}}));

    ChildResult const child = orv::test::runWithPlugin(pictureInChild);
    ASSERT_TRUE(child.exited) << child.errors;
    ASSERT_EQ(child.exitCode, 0) << child.errors;
    ASSERT_GT(child.output.size(), sizeof(orv::ChunkHeader));

    QImage const picture =
        QImage::fromData(reinterpret_cast<uchar const*>(child.output.data()) + sizeof(orv::ChunkHeader),
                         int(child.output.size() - sizeof(orv::ChunkHeader)), "PNG");
    ASSERT_EQ(picture.size(), QSize(Width, Height));
    QRgb const outline = qRgb(0, 255, 0);
    QRgb const grey = picture.pixel(0, 0);
    ASSERT_NE(grey, outline);
    for (int x = 11; x < 30; ++x)
        EXPECT_EQ(picture.pixel(x, 10), outline) << "rectangle's top edge at x " << x;
    EXPECT_EQ(picture.pixel(20, 16), grey) << "inside the rectangle";
    EXPECT_EQ(picture.pixel(46, 20), outline) << "top of the circle";
    EXPECT_EQ(picture.pixel(36, 30), outline) << "left of the circle";
    EXPECT_EQ(picture.pixel(46, 30), grey) << "inside the circle";
}
