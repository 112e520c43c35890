// What the tools hand their users: the simulated camera's models of the sizes asked for, vorn-host's
// files as they are named and its word on a late answer, roipaint's colours. Over the simulated
// camera, a real Redis pair and a private bus.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "Process.h"
#include "RedisServer.h"
#include "TempDir.h"

using namespace orv::test;
using ::testing::HasSubstr;

namespace {

class ToolOutputs : public ::testing::Test
{
protected:
    ProgramRun tool(char const* path, std::vector<std::string> const& args, std::string const& input = "")
    {
        return runProgram(programCommand(std::string(KV_BINARY_DIR "/tools/") + path, args), input);
    }
    std::string head(std::string const& file, size_t bytes)
    {
        std::ifstream in(m_dir.file(file), std::ios::binary);
        std::string text(std::istreambuf_iterator<char>(in), {});
        return text.substr(0, bytes);
    }

    TempDir m_dir{"kv-outputs"};
    RedisEnvironment m_redis;
    DBusDaemon m_bus;
};

TEST_F(ToolOutputs, CamsimPublishesAsManyModelsAndRoisAsAskedEmptyListsIncluded)
{
    struct
    {
        char const* rois;
        std::vector<int> counts;
    } const cases[] = {{"", {4, 5}}, {"4,5,0", {4, 5, 0}}, {"0,64", {0, 64}}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.rois);
        CameraSimOptions options;
        options.rois = c.rois;
        CameraSim camera(options);
        std::string const model =
            m_redis.cache().hget("result_" + camera.trigger(), "ModelResult").value_or("");
        QJsonObject const root = QJsonDocument::fromJson(QByteArray::fromStdString(model)).object();
        std::vector<int> counts;
        for (QString const& key : root.keys())
            if (key.startsWith("model_"))
                counts.push_back(root[key].toObject()["ROIs"].toObject().size()); // equal ids would merge
        EXPECT_EQ(counts, c.counts);
    }
}

TEST_F(ToolOutputs, QueryOutWritesThePictureOrTextAloneForTheirNamesAndTheChunkOtherwise)
{
    CameraSim camera;
    std::string const id = camera.trigger();
    std::string const chunk130("\x82\0\0\0", 4), chunk500("\xf4\x01\0\0", 4);
    struct
    {
        char const* key;
        char const* file;
        char const* flag;
        std::string start;
    } const cases[] = {
        {"z4_amplitude_png", "amplitude.png", "", "\x89PNG\r\n\x1a\n"},
        {"z4_amplitude_png", "amplitude.chunk", "", chunk130},
        {"z4_amplitude_png", "raw.PNG", "--raw", chunk130},
        {"json_model", "model.json", "", "{"},
        {"json_model", "model.chunk", "", chunk500},
    };
    std::string session = "acquire " + id + "\n";
    for (auto const& c : cases)
        session += "query " + id + " " + c.key + " --out " + m_dir.file(c.file) + " " + c.flag + "\n";
    session += "free " + id + "\n"; // as a client gives the result's buffers back
    ProgramRun const run = tool("vorn-host/vorn-host", {"session"}, session);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    for (auto const& c : cases)
        EXPECT_EQ(head(c.file, c.start.size()), c.start) << c.file;
}

TEST_F(ToolOutputs, ARequestSaysWhatItWaitsForOnlyWhenItsAnswerIsLate)
{
    CameraSim camera;
    std::string const notice =
        "vorn-host: waiting for the camera's answer to apps (the bus gives up after 25 s)";
    for (auto const& [fault, late] : {std::pair{"slow:1500", true}, std::pair{"none", false}}) {
        camera.setFault("getApplicationList", fault);
        ProgramRun const run = tool("vorn-host/vorn-host", {"apps"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err.find(notice) != std::string::npos, late) << fault << ": " << run.err;
    }
    // A misspelt fault sent over the bus is refused with the reason; the camera serves on.
    EXPECT_THAT([&] { camera.setFault("vornTrigger", "slow:x"); },
                ::testing::ThrowsMessage<std::runtime_error>(HasSubstr("MS of \"slow\" must be a number")));
    EXPECT_NO_THROW(camera.trigger());
}

TEST_F(ToolOutputs, RoipaintDrawsEachRoiAndItsLabelInTheColourOfItsState)
{
    struct
    {
        char const* state;
        QRgb colour;
    } const rois[] = {{R"("state": "good",)", qRgb(0, 255, 0)},
                      {R"("state": "bad",)", qRgb(255, 0, 0)},
                      {"", qRgb(255, 255, 0)}};
    std::string model = R"({"model_001": {"ROIs": {)";
    for (int i = 0; i < 3; ++i)
        model += (i > 0 ? "," : "") + std::string("\"") + std::to_string(i + 1) + "\": {" + rois[i].state +
                 R"("type": "Rect", "center_x": )" + std::to_string(20 * i + 10) +
                 R"(, "center_y": 10, "width": 14, "height": 14})";
    ProgramRun const run =
        tool("roipaint/roipaint", {"--size", "60x20", "-", m_dir.file("rois.png")}, model + "}}}");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    QImage const picture(QString::fromStdString(m_dir.file("rois.png")));
    ASSERT_EQ(picture.size(), QSize(60, 20));
    for (int i = 0; i < 3; ++i) {
        // Every pixel drawn in the ROI's third is its colour: neither the canvas nor the labels' frame.
        int drawn = 0, others = 0;
        for (int y = 0; y < 20; ++y)
            for (int x = 20 * i; x < 20 * i + 20; ++x) {
                QRgb const pixel = picture.pixel(x, y) | 0xff000000;
                bool const background = pixel == qRgb(24, 24, 24) || pixel == qRgb(0, 0, 0);
                drawn += pixel == rois[i].colour;
                others += !background && pixel != rois[i].colour;
            }
        EXPECT_GT(drawn, 40) << "ROI " << i + 1; // the outline, and the label's digit
        EXPECT_EQ(others, 0) << "ROI " << i + 1;
    }
}

} // namespace
