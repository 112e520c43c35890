// The log tool through its command line, against a real Redis pair and loggers of this process.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Process.h"
#include "RedisServer.h"
#include "TempDir.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;
using namespace orv::test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

using ToolRun = ProgramRun;

double seconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

QJsonObject jsonOf(std::string const& line)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
}

std::string messageOf(std::string const& line)
{
    return jsonOf(line).value("M").toString().toStdString();
}

// Local wall-clock seconds of "2024-05-03T14:02:11.123+02:00" (the zone is the test's own).
double wallOf(std::string const& iso)
{
    tm t{};
    char const* rest = strptime(iso.c_str(), "%Y-%m-%dT%H:%M:%S", &t);
    t.tm_isdst = -1;
    return rest == nullptr ? -1 : double(mktime(&t)) + atof(rest);
}

// A `kslog tail -f` beside the test, its output and errors read as they come.
class Follower
{
public:
    explicit Follower(std::vector<std::string> const& argv)
    {
        int out[2], err[2];
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        pid = spawn(argv, out[1], err[1]);
        close(out[1]);
        close(err[1]);
        m_fds[0] = out[0];
        m_fds[1] = err[0];
    }
    ~Follower()
    {
        stopProcess(pid);
        closeOutput();
        close(m_fds[1]);
    }

    // Reads until `text` appears on standard output (or error), 5 s at most.
    bool waitOut(std::string const& text) { return readUntil(out, text); }
    bool waitErr(std::string const& text) { return readUntil(err, text); }
    // Standard output's lines so far.
    std::vector<std::string> lines() const
    {
        std::vector<std::string> all;
        for (size_t start = 0, end; (end = out.find('\n', start)) != std::string::npos; start = end + 1)
            all.push_back(out.substr(start, end - start));
        return all;
    }
    void closeOutput()
    {
        if (m_fds[0] >= 0)
            close(m_fds[0]);
        m_fds[0] = -1;
    }

    pid_t pid;
    std::string out, err;

private:
    bool readUntil(std::string const& seen, std::string const& text)
    {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (seen.find(text) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
            pollfd p[2] = {{m_fds[0], POLLIN, 0}, {m_fds[1], POLLIN, 0}};
            poll(p, 2, 50);
            for (int i = 0; i < 2; ++i) {
                char buffer[1024];
                ssize_t const n = (p[i].revents & POLLIN) != 0 ? read(m_fds[i], buffer, sizeof buffer) : 0;
                (i == 0 ? out : err).append(buffer, n > 0 ? size_t(n) : 0);
            }
        }
        return seen.find(text) != std::string::npos;
    }

    int m_fds[2];
};

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
    // An entry as a logger writes it, stamped `ago` seconds before now.
    void push(double ago, std::string const& message)
    {
        char entry[256];
        snprintf(entry, sizeof entry, R"({"T":"%.4f", "P":"7", "C":"WARN", "S":"KSCOM", "M":"%s"})",
                 seconds(CLOCK_MONOTONIC) - ago, message.c_str());
        m_redis.cache().command({"RPUSH", "LOG:ENTRIES", entry});
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
    EXPECT_THAT(all.lines[0],
                MatchesRegex("20[0-9]{2}-[01][0-9]-[0-3][0-9] [0-9:.]{12} +[0-9]+ ERROR +KSCOM +disk full"));
    EXPECT_THAT(all.lines[2], HasSubstr("path \"a/b\\c\" missing")); // as logged, not as stored
    EXPECT_THAT(kslog({"list", "--category", "error,emerg", "--source", "oTHER", "--json"}).lines,
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
    EXPECT_THAT(kslog({"list"}).lines, ElementsAre(MatchesRegex(".* [0-9]+ ERROR +KSCOM +x+ \\[cut\\]")));
}

TEST_F(Kslog, TailTakesItsCountInEveryUsualSpellingAndFromMatchingEntriesOnly)
{
    auto kscom = logger("KSCOM");
    auto other = logger("Other");
    kscom->log(RedisLogger::ERROR, "first");
    other->log(RedisLogger::ERROR, "second");
    other->log(RedisLogger::WARN, "third");
    struct
    {
        std::vector<std::string> args;
        std::vector<std::string> messages;
    } const cases[] = {
        {{"-n", "2"}, {"second", "third"}},
        {{"-n2"}, {"second", "third"}},
        {{"-2"}, {"second", "third"}},
        {{"--json", "-1"}, {"third"}},
        {{"-n0"}, {}},
        {{"-1", "--source", "kscom"}, {"first"}}, // not among the newest entry, but the newest of KSCOM
        {{"-5", "--category", "Error", "--source", "OTHER"}, {"second"}},
    };
    for (auto const& c : cases) {
        std::vector<std::string> args = {"tail", "--json"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        ToolRun const run = kslog(args);
        std::vector<std::string> messages;
        std::transform(run.lines.begin(), run.lines.end(), std::back_inserter(messages), messageOf);
        EXPECT_THAT(messages, ElementsAreArray(c.messages)) << ::testing::PrintToString(c.args) << run.err;
    }
}

TEST_F(Kslog, ShowsWallClockTimesAndSelectsByThem)
{
    push(240, "four minutes ago");
    push(90, "ninety seconds ago");
    push(0, "now");
    ToolRun const all = kslog({"list", "--json"});
    double const offset = seconds(CLOCK_REALTIME) - seconds(CLOCK_MONOTONIC);
    ASSERT_EQ(all.lines.size(), 3u) << all.err;
    for (std::string const& line : all.lines) {
        QJsonObject const entry = jsonOf(line);
        double const shown = wallOf(entry.value("time").toString().toStdString());
        EXPECT_NEAR(shown, entry.value("T").toString().toDouble() + offset, 0.01) << line;
    }

    auto local = [](double ago) {
        time_t const when = time(nullptr) - time_t(ago);
        tm t{};
        char text[32];
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", localtime_r(&when, &t));
        return std::string(text);
    };
    struct
    {
        std::vector<std::string> args;
        std::vector<std::string> messages;
    } const cases[] = {
        {{"--since", "-3min"}, {"ninety seconds ago", "now"}},
        {{"--until", "-2min"}, {"four minutes ago"}},
        {{"--since", "-2min", "--until", "-60s"}, {"ninety seconds ago"}},
        {{"--since", local(120)}, {"ninety seconds ago", "now"}},
        {{"--until=" + local(120)}, {"four minutes ago"}},
        {{"--since", "-1h", "--category", "warn", "--to", "-2"}, {"four minutes ago", "ninety seconds ago"}},
        {{"--since", "now"}, {}},
    };
    for (auto const& c : cases) {
        std::vector<std::string> args = {"list", "--json"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        ToolRun const run = kslog(args);
        std::vector<std::string> messages;
        std::transform(run.lines.begin(), run.lines.end(), std::back_inserter(messages), messageOf);
        EXPECT_THAT(messages, ElementsAreArray(c.messages)) << ::testing::PrintToString(c.args) << run.err;
    }
    EXPECT_THAT(kslog({"tail", "-1", "--since", "-100s"}).lines,
                ElementsAre(MatchesRegex(local(0).substr(0, 10) + " [0-9:.]{12} +7 WARN +KSCOM +now")));
}

TEST_F(Kslog, ConfigChangesWhatARunningLoggerWritesAndSaveKeepsItButRefusesWhatWouldHarm)
{
    ToolRun const unheard = kslog({"config", "--mask", "0xff", "--json"});
    EXPECT_EQ(unheard.exitCode, 0);
    EXPECT_THAT(unheard.lines, ElementsAre(HasSubstr(R"("receivers":0)")));
    EXPECT_THAT(unheard.err, HasSubstr("no running logger received it"));
    auto kscom = logger("KSCOM", true);
    ASSERT_TRUE(m_redis.cache().waitForSubscribers("LOGGER:CFG"));
    kscom->log(RedisLogger::DEBUG, "not yet");

    ToolRun const config =
        kslog({"config", "--source", "KSCOM", "--enable", "DEBUG,ERROR", "--max", "500", "--save"});
    ASSERT_EQ(config.exitCode, 0) << config.err;
    EXPECT_THAT(config.lines, ::testing::Contains("received by 1 running logger"));
    EXPECT_EQ(config.err, "");
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
    Follower tail(command({"tail", "-n", "1", "-f"}));
    EXPECT_TRUE(tail.waitOut("old entry"));
    ASSERT_TRUE(m_redis.cache().waitForSubscribers("LOG:ENTRIES"));
    kscom->log(RedisLogger::WARN, "new entry");
    EXPECT_TRUE(tail.waitOut("new entry")) << tail.out;
    // Its reader gone (kslog tail -f | head -1), it ends without waiting for another entry.
    tail.closeOutput();
    int status = -1;
    for (int i = 0; i < 500 && waitpid(tail.pid, &status, WNOHANG) == 0; ++i)
        usleep(10000);
    EXPECT_TRUE(WIFEXITED(status)) << "still following with nobody reading";
}

TEST_F(Kslog, FollowShowsOnlyMatchingEntriesAndWaitsForTheServerWhenItGoes)
{
    Follower tail(command({"tail", "-f", "-n0", "--json", "--source", "kscom", "--grep", "keep"}));
    ASSERT_TRUE(m_redis.cache().waitForSubscribers("LOG:ENTRIES")) << tail.err;
    {
        auto kscom = logger("KSCOM");
        auto other = logger("Other");
        other->log(RedisLogger::ERROR, "keep, but another source");
        kscom->log(RedisLogger::ERROR, "drop");
        kscom->log(RedisLogger::ERROR, "keep 1");
        EXPECT_TRUE(tail.waitOut("keep 1")) << tail.err;
    }

    m_redis.cache().stop();
    EXPECT_TRUE(tail.waitErr("waiting for it to come back"));
    usleep(300000); // a few attempts while it is gone
    m_redis.cache().start();
    ASSERT_TRUE(m_redis.cache().waitForSubscribers("LOG:ENTRIES")) << tail.err;
    logger("kscom")->log(RedisLogger::ERROR, "keep 2");
    EXPECT_TRUE(tail.waitOut("keep 2")) << tail.err;

    std::vector<std::string> messages;
    for (std::string const& line : tail.lines()) {
        EXPECT_FALSE(jsonOf(line).isEmpty()) << "not an entry: " << line;
        messages.push_back(messageOf(line));
    }
    EXPECT_THAT(messages, ElementsAre("keep 1", "keep 2"));
    EXPECT_THAT(tail.err, MatchesRegex("kslog tail: lost the log at [^\n]*; waiting for it to come back\n"
                                       "kslog tail: the log at [^\n]* is back; following again\n"));
}

} // namespace
