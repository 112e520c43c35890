#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <dirent.h>
#include <stdexcept>

#include <QImage>
#include <QJsonDocument>

#include "ResultTestSupport.h"
#include "core/ChunkHeader.h"
#include "results/VORNResultManager.h"

using orv::VORNResultManager;

namespace {

int framesIn(std::string const& dir)
{
    int n = 0;
    DIR* d = opendir(dir.c_str());
    while (dirent* e = readdir(d))
        n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

std::vector<uint32_t> words(void const* data, size_t count)
{
    std::vector<uint32_t> out(count);
    memcpy(out.data(), data, count * 4);
    return out;
}

class ResultManagerTest : public orv::test::ResultTestBase
{
protected:
    void SetUp() override
    {
        ResultTestBase::SetUp();
        m_manager = std::make_unique<VORNResultManager>(logger());
    }
    void TearDown() override
    {
        // A destroyed manager deliberately keeps its buffers (the host may still read them), so
        // give them back first, as a client freeing its id does; leak checkers then stay quiet.
        m_manager->release("0");
        m_manager.reset();
        ResultTestBase::TearDown();
    }
    VORNResultManager& manager() { return *m_manager; }

    void publishText(std::string const& id, std::string const& text)
    {
        publish(id, {{"distance_image", text.data(), static_cast<uint32_t>(text.size())}});
    }

private:
    std::unique_ptr<VORNResultManager> m_manager;
};

TEST_F(ResultManagerTest, HandsOutFrameDataInPlaceAndReleaseGivesTheFrameBack)
{
    publishText("7", "distances");
    ASSERT_TRUE(manager().acquire("7"));
    EXPECT_TRUE(logged("acquire(7): rv: true"));

    unsigned int size = 0;
    auto const* data = static_cast<char const*>(manager().getTmpFSData("7", "distance_image", &size));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data, size), "distances");
    EXPECT_EQ(manager().getTmpFSData("7", "distance_image", nullptr), data);
    char address[16];
    snprintf(address, sizeof address, "%x", static_cast<unsigned int>(reinterpret_cast<uintptr_t>(data)));
    EXPECT_TRUE(logged(std::string("getTmpFSData: retrieved tmpfs data for key distance_image: addr ") +
                       address + " size -1"));

    size = 5;
    EXPECT_EQ(manager().getTmpFSData("7", "x_image", &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(framesIn(frameDir()), 1);

    EXPECT_TRUE(manager().release("7"));
    EXPECT_EQ(framesIn(frameDir()), 0);
    EXPECT_EQ(manager().getTmpFSData("7", "distance_image", &size), nullptr);
    EXPECT_TRUE(logged("getTmpFSData: no result acquired"));
}

TEST_F(ResultManagerTest, KeepsAnUnexpectedFrameUntilItsOwnIdIsReleased)
{
    publishText("8", "eight");
    EXPECT_FALSE(manager().acquire("7"));
    EXPECT_TRUE(logged("acquire: unexpected dequeued element (8), expected: 7"));
    EXPECT_TRUE(logged("acquire(7): rv: false"));

    EXPECT_EQ(manager().getTmpFSData("7", "distance_image", nullptr), nullptr);
    EXPECT_TRUE(logged("getTmpFSData: currently acquired id 8 does not match requested id 7"));
    EXPECT_EQ(manager().getTmpFSData("", "distance_image", nullptr), nullptr);
    EXPECT_TRUE(logged("getTmpFSData: missing id ?!"));

    EXPECT_TRUE(manager().release("7"));
    EXPECT_EQ(framesIn(frameDir()), 1);
    EXPECT_NE(manager().getTmpFSData("8", "distance_image", nullptr), nullptr);
    EXPECT_TRUE(manager().release("8"));
    EXPECT_EQ(framesIn(frameDir()), 0);
}

TEST_F(ResultManagerTest, EachAcquireConsumesTheNextFrameAndTimesOutAfterASecond)
{
    publishText("7", "first");
    publishText("7", "second");
    ASSERT_TRUE(manager().acquire("7"));
    ASSERT_TRUE(manager().acquire("7"));
    unsigned int size = 0;
    auto const* data = static_cast<char const*>(manager().getTmpFSData("7", "distance_image", &size));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data, size), "second");
    // The first frame went when the second became current.
    EXPECT_EQ(framesIn(frameDir()), 1);

    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(manager().acquire("7"));
    auto const waited =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
            .count();
    EXPECT_GE(waited, 990);
    EXPECT_LT(waited, 3000);
    EXPECT_EQ(framesIn(frameDir()), 0);
    EXPECT_EQ(manager().getTmpFSData("7", "distance_image", nullptr), nullptr);
}

TEST_F(ResultManagerTest, BuildsTheDiagnosticRecordOnceFromTheResultHash)
{
    redis().command({"HSET", "result_12", "TemperatureIllu", "41.27", "TemperatureFrontend1", "-0.05",
                     "TemperatureFrontend2", "30", "FrameDuration", "2500"});
    VORNResultManager::ResultData* record = manager().getDiagnosticData("12");
    ASSERT_NE(record, nullptr);
    ASSERT_EQ(record->size, 68);
    EXPECT_EQ(record->type, VORNResultManager::Heap);
    EXPECT_EQ(words(record->data, 12), (std::vector<uint32_t>{302, 68, 48, 2, 5, 1, 4, 0, 12, 0, 0, 0}));
    int32_t values[5];
    memcpy(values, static_cast<char*>(record->data) + 48, sizeof values);
    EXPECT_THAT(values, ::testing::ElementsAre(412, 0, 300, 32767, 2));
    EXPECT_EQ(manager().getDiagnosticData("12"), record);

    manager().release("12");
    record = manager().getDiagnosticData("13");
    ASSERT_NE(record, nullptr);
    memcpy(values, static_cast<char*>(record->data) + 48, sizeof values);
    EXPECT_THAT(values, ::testing::ElementsAre(0, 0, 0, 32767, 0));
    manager().release("13");
    EXPECT_THROW(manager().getDiagnosticData("x1"), std::invalid_argument);
}

TEST_F(ResultManagerTest, CachesTheResultFieldsUntilRelease)
{
    redis().command({"HSET", "result_3", "DiagnosticData", "{\"d\": 1}", "FrameDuration", "100"});
    EXPECT_EQ(manager().getRedisResult("3", "FrameDuration"), "100");
    redis().command({"HSET", "result_3", "FrameDuration", "200", "TemperatureIllu", "20"});
    EXPECT_EQ(manager().getRedisResult("3", "FrameDuration"), "100");
    EXPECT_EQ(manager().getRedisResult("3", "TemperatureIllu"), "");
    manager().release("3");
    EXPECT_EQ(manager().getRedisResult("3", "FrameDuration"), "200");

    // A hash that cannot be read is an error each time, and nothing is cached.
    redis().command({"SET", "result_4", "not a hash"});
    EXPECT_EQ(manager().getRedisResult("4", "FrameDuration"), "200");
    manager().release("4");
    EXPECT_EQ(manager().getRedisResult("4", "FrameDuration"), "");
    EXPECT_TRUE(logged("fetchRedisResults: could not fetch Redis results for id 4 (error 3)"));
}

TEST_F(ResultManagerTest, ServesTheJsonDiagnosticOncePerResultAndRebuildsAfterRelease)
{
    std::string const expected = "{\"temp\": \"h\xc3\xa9\"}";
    redis().hset("result_4", "DiagnosticData", expected);
    VORNResultManager::ResultData* text = manager().getJsonDiagnostic("4");
    ASSERT_NE(text, nullptr);
    uint32_t const n = static_cast<uint32_t>(expected.size());
    ASSERT_EQ(text->size, int(48 + n));
    EXPECT_EQ(words(text->data, 12), (std::vector<uint32_t>{305, 48 + n, 48, 2, n, 1, 0, 0, 4, 0, 0, 0}));
    EXPECT_EQ(std::string(static_cast<char*>(text->data) + 48, n), expected);
    EXPECT_EQ(manager().getJsonDiagnostic("4"), nullptr);

    manager().release("4");
    redis().hset("result_4", "DiagnosticData", "{}");
    text = manager().getJsonDiagnostic("4");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(static_cast<char*>(text->data) + 48, text->size - 48), "{}");
}

TEST_F(ResultManagerTest, SerializesTheModelOfTheResultAndCachesOneModel)
{
    EXPECT_EQ(manager().getJsonModel("5"), nullptr);
    ResultModel* empty = manager().getJsonModel("5");
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->getKeys().isEmpty());
    EXPECT_EQ(manager().getSerializedJsonModel("6"), nullptr);
    EXPECT_TRUE(logged("getSerializedJsonModel: getJsonModel(6): nullptr"));

    char const* model = "{\"ApplicationIndex\": 2, \"model_001\": {\"ROIs\": {\"1\": {\"type\": \"Rect\"}}}}";
    redis().hset("result_9", "ModelResult", model);
    VORNResultManager::ResultData* chunk = manager().getSerializedJsonModel("9");
    ASSERT_NE(chunk, nullptr);
    std::vector<uint32_t> header = words(chunk->data, 12);
    EXPECT_EQ(header[0], 500u);
    EXPECT_EQ(header[1], uint32_t(chunk->size));
    EXPECT_EQ(header[4], uint32_t(chunk->size - 48));
    EXPECT_EQ(header[8], 9u);
    QByteArray const text(static_cast<char*>(chunk->data) + 48, chunk->size - 48);
    EXPECT_TRUE(text.contains("\n    "));
    EXPECT_EQ(QJsonDocument::fromJson(text), QJsonDocument::fromJson(model));
    EXPECT_EQ(manager().getSerializedJsonModel("9"), chunk);

    // Changing the stored model does not change the cached one; asking for another id does.
    redis().hset("result_9", "ModelResult", "{\"ApplicationIndex\": 3}");
    EXPECT_EQ(manager().getJsonModel("9")->get("ApplicationIndex").toInt(), 2);
    manager().getJsonModel("10");
    EXPECT_EQ(manager().getJsonModel("9")->get("ApplicationIndex").toInt(), 3);
}

TEST_F(ResultManagerTest, PicturesTheNormalizedAmplitudeAsALogarithmicGreyPng)
{
    uint16_t const pixels[8] = {0, 1000, 500, 250, 100, 10, 1, 999};
    std::vector<unsigned char> chunk(48 + sizeof pixels);
    orv::ChunkHeader header;
    header.chunkType = 4;
    header.width = 4;
    header.height = 2;
    memcpy(chunk.data(), &header, 48);
    memcpy(chunk.data() + 48, pixels, sizeof pixels);
    publish("21", {{"normalized_amplitude_image", chunk.data(), uint32_t(chunk.size())}});
    ASSERT_TRUE(manager().acquire("21"));

    VORNResultManager::ResultData* png = manager().getZ4ImageDataPNG("21");
    ASSERT_NE(png, nullptr);
    ASSERT_NE(png->data, nullptr);
    EXPECT_EQ(words(png->data, 12),
              (std::vector<uint32_t>{130, uint32_t(png->size), 48, 2, 8, 1, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(manager().getZ4ImageDataPNG("21"), png);

    QImage image;
    ASSERT_TRUE(image.loadFromData(static_cast<uchar*>(png->data) + 48, png->size - 48, "PNG"));
    ASSERT_EQ(image.size(), QSize(4, 2));
    for (int i = 0; i < 8; ++i) {
        // Range 0..1000 found in the data, then ln(1 + 500 t) / ln(501) over 256 grey levels.
        double const t = pixels[i] / 1000.0;
        int const grey = std::min(255, int(std::log(1 + 500 * t) / std::log(501.0) * 256));
        QRgb const pixel = image.pixel(i % 4, i / 4);
        EXPECT_EQ(qRed(pixel), grey) << i;
        EXPECT_EQ(qBlue(pixel), grey) << i;
        EXPECT_EQ(qAlpha(pixel), 255) << i;
    }

    // Without the amplitude image the caller gets an empty entry, not none.
    manager().release("21");
    publishText("22", "no amplitude here");
    ASSERT_TRUE(manager().acquire("22"));
    png = manager().getZ4ImageDataPNG("22");
    ASSERT_NE(png, nullptr);
    EXPECT_EQ(png->data, nullptr);
    EXPECT_EQ(manager().getZ4ImageDataPNG(""), nullptr);
}

} // namespace
