// The log tool through its command line, against a real Redis pair and loggers of this process.
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../unit/logger/LoggerTestSupport.h" // the logger tests' Redis pair, loggers and waiting
#include "Process.h"
#include "TempDir.h"

using namespace orv::test;
using ::testing::_;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Value;

namespace {

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

// The messages of `--json` lines; a line that is not an entry has none ("").
std::vector<std::string> messagesOf(std::vector<std::string> const& lines)
{
    std::vector<std::string> messages;
    for (std::string const& line : lines)
        messages.push_back(jsonOf(line).value("M").toString().toStdString());
    return messages;
}

// Seconds since the epoch of an entry's wall-clock "time", "2024-05-03T14:02:11.123+02:00".
double wallOf(QJsonObject const& entry)
{
    return QDateTime::fromString(entry.value("time").toString(), Qt::ISODateWithMs).toMSecsSinceEpoch() / 1e3;
}

// How a run of the tool ended: its exit code, and what it wrote on standard error.
MATCHER_P2(Ended, exitCode, errors, "ends with exit code " + ::testing::PrintToString(exitCode))
{
    *result_listener << "exit code " << arg.exitCode << ", standard error: " << arg.err;
    return arg.exitCode == exitCode && ExplainMatchResult(errors, arg.err, result_listener);
}

class Kslog : public RedisLoggerTest
{
protected:
    ~Kslog() override
    {
        stopProcess(m_follower);
        close(m_followed);
    }

    // The tool finds the log through the environment that RedisEnvironment sets, as it would on the
    // camera; only a test of --socket names a socket.
    std::vector<std::string> command(std::vector<std::string> const& args)
    {
        return programCommand(KV_BINARY_DIR "/tools/kslog/kslog", args);
    }
    ProgramRun kslog(std::vector<std::string> const& args) { return runProgram(command(args)); }

    // Runs `kslog VERB --json ARGS...` for each case and compares the messages it lists.
    struct Case
    {
        std::vector<std::string> args, messages;
    };
    void expectMessages(std::string const& verb, std::vector<Case> const& cases)
    {
        for (Case const& c : cases) {
            std::vector<std::string> args = {verb, "--json"};
            args.insert(args.end(), c.args.begin(), c.args.end());
            ProgramRun const run = kslog(args);
            EXPECT_THAT(messagesOf(run.lines), ElementsAreArray(c.messages))
                << ::testing::PrintToString(c.args) << run.err;
        }
    }

    // An entry as a logger writes it, stamped `ago` seconds before now.
    void push(double ago, std::string const& message)
    {
        char entry[256];
        snprintf(entry, sizeof entry, R"({"T":"%.4f", "P":"7", "C":"WARN", "S":"KSCOM", "M":"%s"})",
                 seconds(CLOCK_MONOTONIC) - ago, message.c_str());
        redis().command({"RPUSH", "LOG:ENTRIES", entry});
    }

    // Starts `kslog tail -f ARGS...` beside the test: its output read from a pipe as it comes (see
    // waitOut), its errors written to a file (see followerErrors).
    void follow(std::vector<std::string> args)
    {
        int out[2];
        ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
        fcntl(out[0], F_SETFL, O_NONBLOCK);
        int const errors = open(m_dir.file("errors").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        args.insert(args.begin(), {"tail", "-f"});
        m_follower = spawn(command(args), out[1], errors);
        close(out[1]);
        close(errors);
        m_followed = out[0];
    }
    // Reads the follower's output until `text` appears in it, 5 s at most.
    bool waitOut(std::string const& text)
    {
        return waitUntil([&] {
            char buffer[1024];
            ssize_t const n = read(m_followed, buffer, sizeof buffer);
            m_out.append(buffer, n > 0 ? size_t(n) : 0);
            return m_out.find(text) != std::string::npos;
        });
    }
    std::string followerErrors() const
    {
        std::ifstream file(m_dir.file("errors"));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    TempDir m_dir{"kv-kslog"};
    pid_t m_follower = -1;
    int m_followed = -1; // the read end of the follower's output
    std::string m_out;   // what it wrote so far
};

TEST_F(Kslog, ListsFiltersCountsAndClearsTheLog)
{
    auto kscom = makeLogger("KSCOM");
    auto other = makeLogger("Other");
    kscom->log(RedisLogger::ERROR, "disk full");
    kscom->log(RedisLogger::WARN, "slow frame");
    other->log(RedisLogger::ERROR, "path \"a/b\\c\" missing");
    other->log(RedisLogger::EMERG, "it's over");

    ProgramRun const all = kslog({"list"});
    ASSERT_EQ(all.lines.size(), 4u) << all.err;
    EXPECT_THAT(all.lines[0],
                MatchesRegex("20[0-9]{2}-[01][0-9]-[0-3][0-9] [0-9:.]{12} +[0-9]+ ERROR +KSCOM +disk full"));
    EXPECT_THAT(all.lines[2], HasSubstr("path \"a/b\\c\" missing")); // as logged, not as stored
    EXPECT_THAT(kslog({"list", "--category", "error,emerg", "--source", "oTHER", "--json"}).lines,
                ElementsAre(HasSubstr(R"("M":"path \"a/b\\c\" missing")"), HasSubstr(R"("C":"EMERG")")));
    expectMessages("list", {
                               {{"--grep", "\"a/b\\c\""}, {"path \"a/b\\c\" missing"}},
                               {{"--grep", "it's"}, {"it's over"}},
                               {{"--lua", "string.find(entry, 'slow', 1, true)"}, {"slow frame"}},
                               {{"--from", "1", "--to", "2"}, {"slow frame", "path \"a/b\\c\" missing"}},
                           });
    EXPECT_THAT(kslog({"list", "--lua", "entry =="}), Ended(1, _));
    EXPECT_THAT(kslog({"count"}).lines, ElementsAre("4"));
    EXPECT_THAT(kslog({"clear"}).lines, ElementsAre("cleared 4 entries"));
    EXPECT_THAT(kslog({"count", "--json"}).lines, ElementsAre("{\"count\":0}"));
    // An entry cut at 500 bytes still shows its columns and as much of its message as it holds.
    kscom->log(RedisLogger::ERROR, "%s", std::string(600, 'x').c_str());
    EXPECT_THAT(kslog({"list"}).lines, ElementsAre(MatchesRegex(".* [0-9]+ ERROR +KSCOM +x+ \\[cut\\]")));
}

TEST_F(Kslog, TailTakesItsCountInEveryUsualSpellingAndFromMatchingEntriesOnly)
{
    makeLogger("KSCOM")->log(RedisLogger::ERROR, "first");
    auto other = makeLogger("Other");
    other->log(RedisLogger::ERROR, "second");
    other->log(RedisLogger::WARN, "third");
    expectMessages("tail", {
                               {{"-n", "2"}, {"second", "third"}},
                               {{"-n2"}, {"second", "third"}},
                               {{"-2"}, {"second", "third"}},
                               {{"--json", "-1"}, {"third"}},
                               {{"-n0"}, {}},
                               // not among the newest entries, but the newest of KSCOM
                               {{"-1", "--source", "kscom"}, {"first"}},
                               {{"-5", "--category", "Error", "--source", "OTHER"}, {"second"}},
                           });
}

TEST_F(Kslog, ShowsWallClockTimesAndSelectsByThem)
{
    push(240, "four minutes ago");
    push(90, "ninety seconds ago");
    push(0, "now");
    ProgramRun const all = kslog({"list", "--json"});
    double const offset = seconds(CLOCK_REALTIME) - seconds(CLOCK_MONOTONIC);
    ASSERT_EQ(all.lines.size(), 3u) << all.err;
    for (std::string const& line : all.lines)
        EXPECT_NEAR(wallOf(jsonOf(line)), jsonOf(line).value("T").toString().toDouble() + offset, 0.01)
            << line;

    auto local = [](int ago) {
        return QDateTime::currentDateTime().addSecs(-ago).toString("yyyy-MM-dd HH:mm:ss").toStdString();
    };
    expectMessages("list", {
                               {{"--since", "-3min"}, {"ninety seconds ago", "now"}},
                               {{"--until", "-2min"}, {"four minutes ago"}},
                               {{"--since", "-2min", "--until", "-60s"}, {"ninety seconds ago"}},
                               {{"--since", local(120)}, {"ninety seconds ago", "now"}},
                               {{"--until=" + local(120)}, {"four minutes ago"}},
                               {{"--since", "-1h", "--category", "warn", "--to", "-2"},
                                {"four minutes ago", "ninety seconds ago"}},
                               {{"--since", "now"}, {}},
                           });
    EXPECT_THAT(kslog({"tail", "-1", "--since", "-100s"}).lines,
                ElementsAre(MatchesRegex(local(0).substr(0, 10) + " [0-9:.]{12} +7 WARN +KSCOM +now")));
}

TEST_F(Kslog, ConfigChangesWhatARunningLoggerWritesAndSaveKeepsItButRefusesWhatWouldHarm)
{
    ProgramRun const unheard = kslog({"config", "--mask", "0xff", "--json"});
    EXPECT_THAT(unheard, Ended(0, HasSubstr("no running logger received it")));
    EXPECT_THAT(unheard.lines, ElementsAre(HasSubstr(R"("receivers":0)")));
    auto kscom = makeLogger("KSCOM", true);
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    kscom->log(RedisLogger::DEBUG, "not yet");

    ProgramRun const config =
        kslog({"config", "--source", "KSCOM", "--enable", "DEBUG,ERROR", "--max", "500", "--save"});
    ASSERT_THAT(config, Ended(0, IsEmpty()));
    EXPECT_THAT(config.lines, Contains("received by 1 running logger"));
    EXPECT_EQ(m_env.permanent().hget("LOG:PERM:CFG", "KSCOM"),
              "{\n\"source\" : \"KSCOM\"\n,\"max\" : 500\n,\"mask\" : 33\n}\n");
    waitUntil([&] { return redis().llen("LOG:ENTRIES") > 0; }); // the announcement
    kscom->log(RedisLogger::DEBUG, "now written");
    EXPECT_THAT(redis().logMessages(),
                ElementsAre(HasSubstr("Applying new log configuration: mask(0x21)"), "now written"));

    EXPECT_THAT(kslog({"config", "--source", "KSCOM"}), Ended(2, _));
    EXPECT_THAT(kslog({"config", "--max", "0"}), Ended(2, _));
    EXPECT_THAT(kslog({"config", "--segv", "SigSegV"}),
                Ended(2, HasSubstr("matches the line every logger writes")));
    EXPECT_THAT(kslog({"config", "--source", "KSCOM", "--segv", "(["}),
                Ended(2, HasSubstr("not a valid regular expression")));
    EXPECT_THAT(kslog({"list", "--bogus"}), Ended(2, _));
    std::string const none = m_dir.file("none.sock");
    EXPECT_THAT(kslog({"count", "--socket", none}), Ended(1, HasSubstr("cannot reach Redis at " + none)));
}

TEST_F(Kslog, FollowShowsTheNewestThenNewMatchingEntriesThroughAServerRestartUntilNobodyReads)
{
    makeLogger("KSCOM")->log(RedisLogger::ERROR, "keep 1");
    makeLogger("Other")->log(RedisLogger::ERROR, "keep, but another source");
    follow({"-n", "1", "--json", "--source", "kscom", "--grep", "keep"});
    EXPECT_TRUE(waitOut("keep 1")) << followerErrors();
    ASSERT_TRUE(redis().waitForSubscribers("LOG:ENTRIES")) << followerErrors();
    {
        auto kscom = makeLogger("KSCOM");
        makeLogger("Other")->log(RedisLogger::ERROR, "keep, but another source");
        kscom->log(RedisLogger::ERROR, "drop");
        kscom->log(RedisLogger::ERROR, "keep 2");
        EXPECT_TRUE(waitOut("keep 2")) << followerErrors();
    }

    redis().stop();
    EXPECT_TRUE(waitUntil([&] { return Value(followerErrors(), HasSubstr("waiting for it to come back")); }));
    usleep(300000); // a few attempts while it is gone
    redis().start();
    ASSERT_TRUE(redis().waitForSubscribers("LOG:ENTRIES")) << followerErrors();
    makeLogger("kscom")->log(RedisLogger::ERROR, "keep 3");
    EXPECT_TRUE(waitOut("keep 3")) << followerErrors();

    std::vector<std::string> lines;
    std::istringstream out(m_out);
    for (std::string line; std::getline(out, line);)
        lines.push_back(line);
    EXPECT_THAT(messagesOf(lines), ElementsAre("keep 1", "keep 2", "keep 3"));
    EXPECT_THAT(followerErrors(),
                MatchesRegex("kslog tail: lost the log at [^\n]*; waiting for it to come back\n"
                             "kslog tail: the log at [^\n]* is back; following again\n"));

    // Its reader gone (kslog tail -f | head -1), it ends without waiting for another entry.
    close(m_followed);
    m_followed = -1;
    int status = -1;
    EXPECT_TRUE(waitUntil([&] { return waitpid(m_follower, &status, WNOHANG) != 0; }) && WIFEXITED(status))
        << "still following with nobody reading";
}

} // namespace
