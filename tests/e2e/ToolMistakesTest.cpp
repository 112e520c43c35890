// Every tool answers a mistake with what is wrong and what to do, and a non-zero exit: one table over
// the simulated camera, a real Redis pair and a private bus.
#include <fstream>
#include <string>
#include <vector>

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

struct Mistake
{
    std::string tool; // the program's folder and name under tools/
    std::vector<std::string> args;
    std::string input; // standard input
    int exitCode;
    std::string says; // on standard error (or, for validate's verdict, its output)
};

class ToolMistakes : public ::testing::Test
{
protected:
    // "{dir}" stands for the test's own folder, "{socket}" for the log's socket, "{rois}" for the example
    // description with lists of models and ROIs.
    std::string substitute(std::string text)
    {
        for (auto const& [word, value] : {std::pair<std::string, std::string>{"{dir}", m_dir.path()},
                                          {"{socket}", m_redis.cache().socketPath()},
                                          {"{rois}", KV_SOURCE_DIR "/docs/examples/format-plc-rois.json"}}) {
            for (size_t at; (at = text.find(word)) != std::string::npos;)
                text.replace(at, word.size(), value);
        }
        return text;
    }
    std::vector<std::string> command(Mistake const& m)
    {
        std::vector<std::string> args;
        for (std::string const& arg : m.args)
            args.push_back(substitute(arg));
        return programCommand(KV_BINARY_DIR "/tools/" + m.tool, args);
    }

    TempDir m_dir{"kv-mistakes"};
    RedisEnvironment m_redis;
    DBusDaemon m_bus;
    CameraSim m_camera;
};

TEST_F(ToolMistakes, EachSaysWhatIsWrongAndWhatToDoWithANonZeroExit)
{
    std::string const id = m_camera.trigger();
    m_redis.cache().hset("result_77", "ModelResult", "{}"); // stored, but published as no frame
    for (auto const& [name, text] :
         {std::pair{"good", R"({"elements":[{"type":"uint8","id":"activeapp_id"}]})"},
          {"array", "[1,2,3]"},
          {"object", R"({"elements":{}})"},
          {"kinds", R"({"elements":[{"type":"uint12","id":"a"},{"type":"records","id":"model",
                                         "elements":[]},{"type":"int8","id":"b","format":{"dataencoding":"binery"}}]})"},
          {"broken", "{\"elements\":[\n{\"type\":}"}})
        std::ofstream(m_dir.file(std::string(name) + ".json")) << text;
    std::string const host = "vorn-host/vorn-host";
    Mistake const mistakes[] = {
        // vorn-host
        {host, {"frobnicate"}, "", 2, "unknown command \"frobnicate\""},
        {host, {"format", "9999", "{dir}/good.json"}, "", 1, "no result 9999: Redis holds no result_9999"},
        {host, {"format", "77", "{dir}/good.json", "--acquire"}, "", 1, "nothing acquired"},
        {host, {"format", "77", "{dir}/good.json", "--acquire", "--explain"}, "", 1, "nothing acquired"},
        {host, {"format", id, "{dir}/array.json"}, "", 1, "/: [1,2,3] is no description"},
        {host, {"format", id, "-"}, R"({"elements":{}})", 1, "/elements: {} is no list"},
        {host, {"plc-types", "{dir}/broken.json"}, "", 1, "no JSON: Invalid value. (line 2, column 9)"},
        {host, {"plc-types", "{dir}/kinds.json"}, "", 1, "/elements/0/type: \"uint12\" is not one of"},
        {host, {"validate", "{dir}/kinds.json"}, "", 1, "allowed: string, int8, int16, int32, uint8"},
        {host, {"validate", "{dir}/kinds.json"}, "", 1, "/elements/1/id: \"model\": the records here"},
        {host, {"validate", "{dir}/kinds.json"}, "", 1, "allowed values; allowed: ascii, binary"},
        {host, {"plc-types", "{dir}/good.json", "--lang", "basic"}, "", 2, "--lang is st or c"},
        {host, {"plc-types", "{dir}/good.json"}, "", 1, "(\"activeapp_id\") is text of no fixed width"},
        {host, {"plc-types", "{dir}/nothing.json"}, "", 2, "cannot read {dir}/nothing.json: No such file"},
        {host, {"plc-types", "{rois}", "--records", "models=4,roi=8"}, "", 2, "(its lists: models, rois)"},
        {host, {"plc-types", "{rois}"}, "", 2, "give the capacity of models, rois with --records"},
        // kslog
        {"kslog/kslog", {"tail", "-x", "--socket", "{socket}"}, "", 2, "unknown option \"-x\""},
        // Refused before anything is read or published:
        {"kslog/kslog", {"config", "--mask", "0x1ff"}, "", 2, "--mask must be a number from 0 to 255 (8"},
        {"kslog/kslog", {"config", "--max", "0"}, "", 2, "--max must be a number from 1 to 2147483647"},
        {"kslog/kslog", {"config", "--max", "2147483648"}, "", 2, "to 2147483647 (at least 1"},
        {"kslog/kslog", {"config", "--mask", "1", "--pid", "-4"}, "", 2, "--pid must be a number from 1"},
        {"kslog/kslog", {"tail", "-n", "-3"}, "", 2, "-n must be a number from 0 to 2147483647"},
        {"kslog/kslog", {"tail", "-5", "-n3"}, "", 2, "give -n N or -N, not both"},
        {"kslog/kslog", {"list", "--to", "4294967296"}, "", 2, "--to must be a number from -2147483648"},
        {"kslog/kslog", {"list", "--from", "1O"}, "", 2, "not \"1O\""},
        {"kslog/kslog", {"list", "--since", "noon"}, "", 2, "--since cannot be read as a time: \"noon\""},
        {"kslog/kslog", {"list", "--until", "2024-02-30 10:00"}, "", 2, "(today), \"-30s\", \"-10min\""},
        {"kslog/kslog", {"list", "--since", "24:00"}, "", 2, "cannot be read as a time"},
        {"kslog/kslog", {"list", "--since", "-10years"}, "", 2, "cannot be read as a time"},
        {"kslog/kslog", {"list", "--since", "-1min", "--until", "-2min"}, "", 2, "--since is after --until"},
        {"kslog/kslog", {"tail", "-f", "--until", "-1h"}, "", 2, "a followed log has no end"},
        {"kslog/kslog", {"tail", "-f", "-n0", "--lua", "==", "--socket", "{socket}"}, "", 1, "filter fails"},
        // camsim, roipaint
        {"camsim/camsim", {"--fault", "vornTrigger"}, "", 2, "no \"=\" between method and kind"},
        {"camsim/camsim", {"--fault", "vornTriger=slow"}, "", 2, "unknown method \"vornTriger\"; methods: *"},
        {"camsim/camsim", {"--fault", "vornTrigger=slo"}, "", 2, "unknown kind \"slo\"; kinds: none, error"},
        {"camsim/camsim", {"--fault", "vornTrigger=code:5x"}, "", 2, "N of \"code\" must be a number"},
        {"camsim/camsim", {"--fault", "getStatistics=slow"}, "", 2, "\"slow\" needs a value: slow:MS"},
        {"camsim/camsim", {"--fault", "*=noreply:5"}, "", 2, "\"noreply\" takes no value"},
        {"camsim/camsim", {"--rois", "4,,0"}, "", 2, "\"\" is not a number of ROIs from 0 to 64"},
        {"camsim/camsim", {"--rois", "65"}, "", 2, "\"65\" is not a number of ROIs from 0 to 64"},
        {"camsim/camsim", {"--rois", "1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1"}, "", 2, "at most 16 models"},
        {"roipaint/roipaint", {"{dir}/missing.json", "{dir}/out.png"}, "", 1, "cannot read"},
        {"roipaint/roipaint", {"-", "{dir}/out.png"}, "[1, 2]", 1, "- is not a JSON result model"},
        {"roipaint/roipaint", {"--background", "{dir}/x", "-", "{dir}/o"}, "{}", 1, "read the picture"},
        {"roipaint/roipaint", {"--size", "0x5", "-", "{dir}/out.png"}, "", 2, "--size is WIDTHxHEIGHT"},
        {"roipaint/roipaint", {"-"}, "", 2, "too few arguments"},
    };
    for (Mistake const& m : mistakes) {
        std::vector<std::string> const argv = command(m);
        SCOPED_TRACE(m.tool + " " + ::testing::PrintToString(m.args));
        ProgramRun const run = runProgram(argv, m.input);
        EXPECT_EQ(run.exitCode, m.exitCode);
        std::string said = run.err; // validate's verdict is its output
        for (std::string const& line : run.lines)
            said += line + '\n';
        EXPECT_THAT(said, HasSubstr(substitute(m.says)));
    }
}

} // namespace
