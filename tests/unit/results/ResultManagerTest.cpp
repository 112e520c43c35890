// The result side of the plug-in against a real Redis cache and a real frame directory: the
// persister of result models, the manager's acquire, release and data rules, and the chunks it
// derives from a result.
#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

#include <QImage>
#include <QJsonDocument>

#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "logger/RedisLogger.h"
#include "results/ResultModelRedisPersister.h"
#include "results/VORNResultManager.h"
#include "resultsync/FramePublisher.h"

using orv::VORNResultManager;
using namespace ::testing;
using Words = std::vector<uint32_t>;

auto const words = [](void const* chunk, size_t n) {
    return Words(static_cast<uint32_t const*>(chunk), static_cast<uint32_t const*>(chunk) + n);
};

// The Redis pair lives as long as the program and is emptied before each test: the persisters of a
// process share one logger, made on the cache that the first one reached.
class ResultManagerTest : public ::testing::Test
{
protected:
    static orv::test::RedisServer& redis()
    {
        static orv::test::RedisEnvironment environment;
        return environment.cache();
    }
    void SetUp() override { redis().command({"FLUSHALL"}); }
    // A destroyed manager keeps its buffers (the host may still read them): give them back first.
    void TearDown() override { manager.release("0"); }
    long frames() const { return std::distance(std::filesystem::directory_iterator(dir.path()), {}); }
    std::vector<std::string> errors() { return redis().logMessages("ERROR"); }

    orv::test::TempDir dir{"kv-frames"};
    orv::test::ScopedEnv frameDir{"ORV_FRAME_DIR", dir.path()};
    orv::Logger::RedisLogger logger{"TEST", redis().socketPath().c_str(), "LOG:ENTRIES", false};
    orv::resultsync::FramePublisher publisher{8, dir.path()};
    VORNResultManager manager{logger};
};

TEST_F(ResultManagerTest, PersisterKeepsModelsAsJsonTextInTheModelResultFieldOfTheKeysHash)
{
    EXPECT_THROW(orv::ResultModelRedisPersister("/nonexistent/redis.sock"), std::runtime_error);
    orv::ResultModelRedisPersister persister(QString::fromStdString(redis().socketPath()));
    ResultModel model;
    EXPECT_TRUE(persister.put("result_1", model));
    EXPECT_EQ(redis().hget("result_1", "ModelResult"), std::string("{\n}\n"));
    EXPECT_TRUE(persister.rm("result_1"));
    EXPECT_FALSE(persister.get("result_1", model));
    EXPECT_THAT(errors(), ElementsAre("getJson: Wrong type(4) returned ((null)) for result_1#"));

    // The persisters' logger takes run-time configuration like any other: it announces a change.
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    redis().command({"PUBLISH", "LOGGER:CFG", R"({"source":"ResultModelRedisPersister","max":77})"});
    auto const announced =
        Contains(AllOf(HasSubstr("\"S\":\"ResultModelRedisPersister\""), HasSubstr("max logs(77)")));
    for (int i = 0; i < 500 && !Matches(announced)(redis().lrange("LOG:ENTRIES")); ++i)
        usleep(10000);
    EXPECT_THAT(redis().lrange("LOG:ENTRIES"), announced);

    // A persister whose server went away fails every operation and goes on.
    signal(SIGPIPE, SIG_IGN);
    orv::test::RedisServer gone;
    orv::ResultModelRedisPersister lost(QString::fromStdString(gone.socketPath()));
    gone.stop();
    EXPECT_FALSE(lost.put("result_1", model));
    EXPECT_FALSE(lost.putJson("result_1", "{}"));
    EXPECT_EQ(lost.getJson("result_1"), QString());
    EXPECT_FALSE(lost.rm("result_1"));
}

TEST_F(ResultManagerTest, HandsOutOnlyTheAcquiredFrameInPlaceAndTakesANewFrameOnEveryAcquire)
{
    ASSERT_TRUE(publisher.publish("8", {{"distance_image", "eight", 5}}));
    ASSERT_TRUE(publisher.publish("7", {{"distance_image", "distances", 9}}));
    EXPECT_FALSE(manager.acquire("7")); // the unexpected frame stays until its own id is released
    EXPECT_EQ(manager.getTmpFSData("7", "distance_image", nullptr), nullptr);
    EXPECT_TRUE(manager.release("7"));
    EXPECT_NE(manager.getTmpFSData("8", "distance_image", nullptr), nullptr);
    EXPECT_TRUE(manager.release("8"));
    EXPECT_EQ(frames(), 1);

    ASSERT_TRUE(manager.acquire("7"));
    unsigned int size = 0;
    auto const* data = static_cast<char const*>(manager.getTmpFSData("7", "distance_image", &size));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data, size), "distances");
    EXPECT_EQ(manager.getTmpFSData("7", "distance_image", nullptr), data);
    EXPECT_EQ(manager.getTmpFSData("", "distance_image", nullptr), nullptr);

    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(manager.acquire("7")); // no further frame: given up after a second, the old one gone
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(frames(), 0);
    EXPECT_THAT(errors(), ElementsAre("acquire: unexpected dequeued element (8), expected: 7",
                                      "getTmpFSData: currently acquired id 8 does not match requested id 7",
                                      "getTmpFSData: missing id ?!"));
}

TEST_F(ResultManagerTest, DerivesTheDiagnosticChunksFromTheResultHashReadOncePerResult)
{
    std::string const diagnostic = "{\"temp\": \"h\xc3\xa9\"}";
    redis().command({"HSET", "result_12", "TemperatureIllu", "41.27", "TemperatureFrontend1", "-0.05",
                     "TemperatureFrontend2", "30", "FrameDuration", "2500", "DiagnosticData", diagnostic});
    VORNResultManager::ResultData* diag = manager.getDiagnosticData("12");
    ASSERT_TRUE(diag != nullptr && diag->size == 68);
    EXPECT_EQ(words(diag->data, 17), (Words{302, 68, 48, 2, 5, 1, 4, 0, 12, 0, 0, 0, 412, 0, 300, 32767, 2}));
    EXPECT_EQ(manager.getDiagnosticData("12"), diag);
    redis().hset("result_12", "DiagnosticData", "{}"); // not read again before the release
    VORNResultManager::ResultData* text = manager.getJsonDiagnostic("12");
    uint32_t const n = uint32_t(diagnostic.size());
    ASSERT_TRUE(text != nullptr && text->size == int(48 + n));
    EXPECT_EQ(words(text->data, 12), (Words{305, 48 + n, 48, 2, n, 1, 0, 0, 12, 0, 0, 0}));
    EXPECT_EQ(std::string(static_cast<char*>(text->data) + 48, n), diagnostic);
    EXPECT_EQ(manager.getJsonDiagnostic("12"), nullptr); // once per result

    manager.release("12");
    diag = manager.getDiagnosticData("13");
    ASSERT_NE(diag, nullptr);
    EXPECT_EQ(words(diag->data, 17), (Words{302, 68, 48, 2, 5, 1, 4, 0, 13, 0, 0, 0, 0, 0, 0, 32767, 0}));
    // Ids are numbered as the camera's 32-bit conversion does it, on every host.
    for (char const* id : {"4294967296", "99999999999", "-4294967296"}) {
        manager.release(id);
        EXPECT_THROW(manager.getDiagnosticData(id), std::out_of_range) << id;
    }
    manager.release("-1");
    EXPECT_EQ(words(manager.getDiagnosticData("-1")->data, 9)[8], 4294967295u);
    redis().command({"SET", "result_4", "not a hash"});
    EXPECT_EQ(manager.getRedisResult("4", "FrameDuration"), "");
    EXPECT_THAT(errors(), ElementsAre("fetchRedisResults: could not fetch Redis results for id 4 (error 3)"));
}

TEST_F(ResultManagerTest, SerializesTheResultModelOnceAndKeepsOneParsedModelEvenWhenItsLoadFailed)
{
    redis().hset("result_5", "ModelResult", "{");
    EXPECT_EQ(manager.getSerializedJsonModel("5"), nullptr);
    ASSERT_NE(manager.getJsonModel("5"), nullptr); // the empty model cached by the failed load
    EXPECT_TRUE(manager.getJsonModel("5")->getKeys().isEmpty());

    char const* model = "{\"ApplicationIndex\": 2, \"model_001\": {\"name\": \"h\xc3\xa9\"}}";
    redis().hset("result_9", "ModelResult", model);
    VORNResultManager::ResultData* chunk = manager.getSerializedJsonModel("9");
    ASSERT_NE(chunk, nullptr);
    uint32_t const n = uint32_t(chunk->size - 48);
    EXPECT_EQ(words(chunk->data, 12), (Words{500, n + 48, 48, 2, n, 1, 0, 0, 9, 0, 0, 0}));
    QByteArray const text(static_cast<char*>(chunk->data) + 48, int(n));
    EXPECT_EQ(QJsonDocument::fromJson(text), QJsonDocument::fromJson(model));
    EXPECT_EQ(manager.getSerializedJsonModel("9"), chunk);

    redis().hset("result_9", "ModelResult", R"({"ApplicationIndex": 3})");
    EXPECT_EQ(manager.getJsonModel("9")->get("ApplicationIndex").toInt(), 2);
    manager.getJsonModel("10");
    EXPECT_EQ(manager.getJsonModel("9")->get("ApplicationIndex").toInt(), 3);
}

TEST_F(ResultManagerTest, PicturesTheAmplitudeAsALogarithmicGreyPngWithTheRoisOfEveryModel)
{
    int const width = 32, height = 16;
    std::vector<uint16_t> chunk(24 + width * height); // the 48-byte header, then the pixels
    for (int i = 0; i < width * height; ++i)
        chunk[24 + i] = uint16_t(i * 1000 / (width * height - 1)); // 0 to 1000, the range found in the data
    chunk[8] = width;                                              // the header's words 4 and 5
    chunk[10] = height;
    ASSERT_TRUE(
        publisher.publish("21", {{"normalized_amplitude_image", chunk.data(), uint32_t(chunk.size() * 2)}}));
    redis().hset("result_21", "ModelResult", R"({
    "model_001": {"ROIs": {"1": {"type": "Rect", "center_x": 8.5, "center_y": 8.5, "width": 6, "height": 4}}},
    "model_002": {"ROIs": {"1": {"type": "Circle", "center_x": 24.5, "center_y": 8.5, "width": 8}}}})");
    ASSERT_TRUE(manager.acquire("21"));

    VORNResultManager::ResultData* png = manager.getZ4ImageDataPNG("21");
    ASSERT_TRUE(png != nullptr && png->data != nullptr);
    EXPECT_EQ(words(png->data, 12), (Words{130, uint32_t(png->size), 48, 2, 512, 1, 0, 0, 1, 0, 0, 0}));
    QImage image;
    ASSERT_TRUE(image.loadFromData(static_cast<uchar*>(png->data) + 48, png->size - 48, "PNG"));
    QRgb const green = qRgb(0, 255, 0);
    for (QPoint const outline : {QPoint(5, 8), QPoint(8, 6), QPoint(24, 4), QPoint(28, 8)})
        EXPECT_EQ(image.pixel(outline), green) << outline.x() << "," << outline.y();
    for (int i = 0; i < width * height; ++i) {
        int const grey = std::min(255, int(std::log(1 + 0.5 * chunk[24 + i]) / std::log(501.0) * 256));
        QRgb const pixel = image.pixel(i % width, i / width);
        EXPECT_TRUE(pixel == green || pixel == qRgb(grey, grey, grey)) << i << ": " << std::hex << pixel;
    }

    manager.release("21"); // a result without the amplitude image gets an empty entry
    ASSERT_TRUE(publisher.publish("22", {{"distance_image", "no amplitude", 12}}));
    ASSERT_TRUE(manager.acquire("22"));
    png = manager.getZ4ImageDataPNG("22");
    ASSERT_NE(png, nullptr);
    EXPECT_EQ(png->data, nullptr);
}
