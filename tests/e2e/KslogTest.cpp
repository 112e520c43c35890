// The log tool through its command line, against a real Redis pair and loggers of this process.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Process.h"
#include "RedisServer.h"
#include "TempDir.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;
using namespace orv::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

using ToolRun = ProgramRun;

class Kslog : public ::testing::Test
{
protected:
    std::vector<std::string> command(std::vector<std::string> args)
    {
        if (std::find(args.begin(), args.end(), "--socket") == args.end())
            args.insert(args.end(), {"--socket", m_redis.cache().socketPath()});
        return programCommand(KV_BINARY_DIR "/tools/kslog/kslog", args);
    }
    ToolRun kslog(std::vector<std::string> const& args) { return runProgram(command(args)); }
    std::unique_ptr<RedisLogger> logger(char const* source, bool subscribe = false)
    {
        return std::make_unique<RedisLogger>(source, m_redis.cache().socketPath().c_str(), "LOG:ENTRIES",
                                             subscribe);
    }

    RedisEnvironment m_redis;
    TempDir m_dir{"kv-kslog"};
};

TEST_F(Kslog, ListsFiltersCountsAndClearsTheLog)
{
    auto kscom = logger("KSCOM");
    auto other = logger("Other");
    kscom->log(RedisLogger::ERROR, "disk full");
    kscom->log(RedisLogger::WARN, "slow frame");
    other->log(RedisLogger::ERROR, "path \"a/b\\c\" missing");
    other->log(RedisLogger::EMERG, "it's over");

    ToolRun const all = kslog({"list"});
    ASSERT_EQ(all.lines.size(), 4u) << all.err;
    EXPECT_THAT(all.lines[0], MatchesRegex(" *[0-9]+\\.[0-9]+ +[0-9]+ ERROR +KSCOM +disk full"));
    EXPECT_THAT(all.lines[2], HasSubstr("path \"a/b\\c\" missing")); // as logged, not as stored
    EXPECT_THAT(kslog({"list", "--category", "error,emerg", "--source", "Other", "--json"}).lines,
                ElementsAre(HasSubstr(R"("M":"path \"a/b\\c\" missing")"), HasSubstr(R"("C":"EMERG")")));
    EXPECT_EQ(kslog({"list", "--grep", "\"a/b\\c\""}).lines.size(), 1u);
    EXPECT_EQ(kslog({"list", "--grep", "it's"}).lines.size(), 1u);
    EXPECT_THAT(kslog({"list", "--lua", "string.find(entry, 'slow', 1, true)"}).lines,
                ElementsAre(HasSubstr("slow frame")));
    EXPECT_EQ(kslog({"list", "--from", "1", "--to", "2"}).lines.size(), 2u);
    EXPECT_EQ(kslog({"list", "--lua", "entry =="}).exitCode, 1);
    EXPECT_THAT(kslog({"count"}).lines, ElementsAre("4"));
    EXPECT_THAT(kslog({"clear"}).lines, ElementsAre("cleared 4 entries"));
    EXPECT_THAT(kslog({"count", "--json"}).lines, ElementsAre("{\"count\":0}"));
    // An entry cut at 500 bytes still shows its columns and as much of its message as it holds.
    kscom->log(RedisLogger::ERROR, "%s", std::string(600, 'x').c_str());
    EXPECT_THAT(kslog({"list"}).lines,
                ElementsAre(MatchesRegex(" *[0-9]+\\.[0-9]+ +[0-9]+ ERROR +KSCOM +x+ \\[cut\\]")));
}

TEST_F(Kslog, ConfigChangesWhatARunningLoggerWritesAndSaveKeepsItButRefusesWhatWouldHarm)
{
    auto kscom = logger("KSCOM", true);
    ASSERT_TRUE(m_redis.cache().waitForSubscribers("LOGGER:CFG"));
    kscom->log(RedisLogger::DEBUG, "not yet");

    ToolRun const config =
        kslog({"config", "--source", "KSCOM", "--enable", "DEBUG,ERROR", "--max", "500", "--save"});
    ASSERT_EQ(config.exitCode, 0) << config.err;
    EXPECT_EQ(m_redis.permanent().hget("LOG:PERM:CFG", "KSCOM"),
              "{\n\"source\" : \"KSCOM\"\n,\"max\" : 500\n,\"mask\" : 33\n}\n");
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (m_redis.cache().llen("LOG:ENTRIES") < 1 && std::chrono::steady_clock::now() < deadline)
        usleep(5000);
    kscom->log(RedisLogger::DEBUG, "now written");
    EXPECT_THAT(m_redis.cache().logMessages(),
                ElementsAre(HasSubstr("Applying new log configuration: mask(0x21)"), "now written"));

    EXPECT_EQ(kslog({"config", "--source", "KSCOM"}).exitCode, 2);
    EXPECT_EQ(kslog({"config", "--max", "0"}).exitCode, 2);
    ToolRun const crashing = kslog({"config", "--segv", "SigSegV"});
    EXPECT_EQ(crashing.exitCode, 2);
    EXPECT_THAT(crashing.err, HasSubstr("matches the line every logger writes"));
    ToolRun const broken = kslog({"config", "--source", "KSCOM", "--segv", "(["});
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_THAT(broken.err, HasSubstr("not a valid regular expression"));
    EXPECT_EQ(kslog({"list", "--bogus"}).exitCode, 2);
    ToolRun const unreachable = kslog({"count", "--socket", m_dir.file("none.sock")});
    EXPECT_EQ(unreachable.exitCode, 1);
    EXPECT_THAT(unreachable.err, HasSubstr("cannot reach Redis at " + m_dir.file("none.sock")));
}

TEST_F(Kslog, TailFollowShowsAnEntryWrittenAfterItStarted)
{
    auto kscom = logger("KSCOM");
    kscom->log(RedisLogger::ERROR, "old entry");
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    pid_t pid = spawn(command({"tail", "-n", "1", "-f"}), fds[1]);
    close(fds[1]);

    std::string seen;
    auto readUntil = [&](std::string const& text) {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        char buffer[1024];
        while (seen.find(text) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
            pollfd p{fds[0], POLLIN, 0};
            ssize_t const n = poll(&p, 1, 50) > 0 ? read(fds[0], buffer, sizeof buffer) : 0;
            seen.append(buffer, n > 0 ? size_t(n) : 0);
        }
        return seen.find(text) != std::string::npos;
    };
    EXPECT_TRUE(readUntil("old entry"));
    ASSERT_TRUE(m_redis.cache().waitForSubscribers("LOG:ENTRIES"));
    kscom->log(RedisLogger::WARN, "new entry");
    EXPECT_TRUE(readUntil("new entry")) << seen;
    // Its reader gone (kslog tail -f | head -1), it ends without waiting for another entry.
    close(fds[0]);
    int status = -1;
    for (int i = 0; i < 500 && waitpid(pid, &status, WNOHANG) == 0; ++i)
        usleep(10000);
    EXPECT_TRUE(WIFEXITED(status)) << "still following with nobody reading";
    stopProcess(pid);
}

} // namespace
