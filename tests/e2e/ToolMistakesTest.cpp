// Every tool answers a mistake with what is wrong and what to do, and a non-zero exit: one table over
// the simulated camera, a real Redis pair and a private bus.
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
    char const* tool; // the program's folder and name under tools/
    std::vector<std::string> args;
    std::string input; // standard input
    int exitCode;
    char const* says; // on standard error
};

class ToolMistakes : public ::testing::Test
{
protected:
    // "{dir}" in an argument stands for the test's own folder, "{socket}" for the log's socket.
    std::vector<std::string> command(Mistake const& m)
    {
        std::vector<std::string> args;
        for (std::string arg : m.args) {
            for (auto const& [word, value] : {std::pair<std::string, std::string>{"{dir}", m_dir.path()},
                                              {"{socket}", m_redis.cache().socketPath()}}) {
                for (size_t at; (at = arg.find(word)) != std::string::npos;)
                    arg.replace(at, word.size(), value);
            }
            args.push_back(arg);
        }
        return programCommand(std::string(KV_BINARY_DIR "/tools/") + m.tool, args);
    }

    TempDir m_dir{"kv-mistakes"};
    RedisEnvironment m_redis;
    DBusDaemon m_bus;
    CameraSim m_camera;
};

TEST_F(ToolMistakes, EachSaysWhatIsWrongAndWhatToDoWithANonZeroExit)
{
    m_camera.trigger();
    Mistake const mistakes[] = {
        // vorn-host
        {"vorn-host/vorn-host", {"frobnicate"}, "", 2, "unknown command \"frobnicate\""},
        // kslog
        {"kslog/kslog", {"tail", "-x", "--socket", "{socket}"}, "", 2, "unknown option \"-x\""},
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
        SCOPED_TRACE(m.tool + (" " + ::testing::PrintToString(m.args)));
        ProgramRun const run = runProgram(argv, m.input);
        EXPECT_EQ(run.exitCode, m.exitCode);
        EXPECT_THAT(run.err, HasSubstr(m.says));
    }
}

} // namespace
