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
        {"kslog/kslog",
         {"tail", "-f", "-n0", "--lua", "entry ==", "--socket", "{socket}"},
         "",
         1,
         "filter fails"},
        // camsim, roipaint
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
