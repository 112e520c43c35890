// The log tool through its command line, against a real Redis pair and a logger of this process.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PluginChild.h"
#include "Program.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "logger/RedisLogger.h"

#include <hiredis/hiredis.h>

using orv::Logger::RedisLogger;
using orv::test::RedisEnvironment;
using orv::test::TempDir;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

struct ToolRun
{
    int exitCode = -1; // -1 when ended by a signal
    std::string out;
    std::string err;
};

std::string slurp(std::string const& path)
{
    std::string text;
    int fd = open(path.c_str(), O_RDONLY);
    char buffer[4096];
    ssize_t n;
    while (fd >= 0 && (n = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(n));
    if (fd >= 0)
        close(fd);
    return text;
}

std::vector<std::string> lines(std::string const& text)
{
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        out.push_back(text.substr(start, nl - start));
    return out;
}

pid_t spawn(std::vector<std::string> const& args, int outFd, int errFd)
{
    std::vector<std::string> const command =
        orv::test::programCommand(KV_BINARY_DIR "/tools/kslog/kslog", args);
    std::vector<char*> argv;
    for (auto const& a : command)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(outFd, STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

class Kslog : public ::testing::Test
{
protected:
    ToolRun kslog(std::vector<std::string> args)
    {
        if (std::find(args.begin(), args.end(), "--socket") == args.end()) {
            args.push_back("--socket");
            args.push_back(m_redis.cache().socketPath());
        }
        std::string const outPath = m_dir.file("out");
        std::string const errPath = m_dir.file("err");
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        pid_t pid = spawn(args, out, err);
        close(out);
        close(err);
        int status = 0;
        waitpid(pid, &status, 0);
        ToolRun run;
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.out = slurp(outPath);
        run.err = slurp(errPath);
        return run;
    }

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

    ToolRun all = kslog({"list"});
    ASSERT_EQ(all.exitCode, 0) << all.err;
    auto const rows = lines(all.out);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_THAT(rows[0], ::testing::MatchesRegex(" *[0-9]+\\.[0-9]+ +[0-9]+ ERROR +KSCOM +disk full"));
    EXPECT_THAT(rows[2], HasSubstr("path \"a/b\\c\" missing")); // shown as logged, not as stored
    EXPECT_THAT(all.out, Not(HasSubstr("\033[")));              // no colours into a file

    ToolRun errors = kslog({"list", "--category", "error,emerg", "--source", "Other", "--json"});
    ASSERT_EQ(errors.exitCode, 0) << errors.err;
    ASSERT_EQ(lines(errors.out).size(), 2u);
    EXPECT_THAT(lines(errors.out)[0], HasSubstr(R"("M":"path \"a/b\\c\" missing")"));
    EXPECT_THAT(lines(errors.out)[1], HasSubstr(R"("C":"EMERG")"));

    ToolRun grep = kslog({"list", "--grep", "\"a/b\\c\""});
    EXPECT_EQ(lines(grep.out).size(), 1u) << grep.err;
    ToolRun quote = kslog({"list", "--grep", "it's"});
    EXPECT_EQ(lines(quote.out).size(), 1u) << quote.err;
    ToolRun lua = kslog({"list", "--lua", "string.find(entry, 'slow', 1, true)"});
    ASSERT_EQ(lines(lua.out).size(), 1u) << lua.err;
    EXPECT_THAT(lua.out, HasSubstr("slow frame"));
    ToolRun range = kslog({"list", "--from", "1", "--to", "2"});
    EXPECT_EQ(lines(range.out).size(), 2u);

    ToolRun broken = kslog({"list", "--lua", "entry =="});
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_THAT(broken.err, HasSubstr("kslog list: "));

    EXPECT_EQ(kslog({"count"}).out, "4\n");
    EXPECT_EQ(kslog({"clear"}).out, "cleared 4 entries\n");
    EXPECT_EQ(kslog({"count", "--json"}).out, "{\"count\":0}\n");
}

TEST_F(Kslog, ConfigEnablingDebugChangesWhatARunningLoggerWritesAndSaveKeepsIt)
{
    auto kscom = logger("KSCOM", true);
    kscom->log(RedisLogger::DEBUG, "not yet");
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (m_redis.cache().command({"PUBSUB", "NUMSUB", "LOGGER:CFG"}).elements[1].integer < 1 &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));

    ToolRun config =
        kslog({"config", "--source", "KSCOM", "--enable", "DEBUG,ERROR", "--max", "500", "--save"});
    ASSERT_EQ(config.exitCode, 0) << config.err;
    EXPECT_EQ(m_redis.permanent().hget("LOG:PERM:CFG", "KSCOM"),
              "{\n\"source\" : \"KSCOM\"\n,\"max\" : 500\n,\"mask\" : 33\n}\n");

    // Applying it writes an INFO entry; after that, debug entries are written.
    while (m_redis.cache().llen("LOG:ENTRIES") < 1 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kscom->log(RedisLogger::DEBUG, "now written");
    ToolRun list = kslog({"list"});
    auto const rows = lines(list.out);
    ASSERT_EQ(rows.size(), 2u) << list.out;
    EXPECT_THAT(rows[0], HasSubstr("Applying new log configuration: mask(0x21)"));
    EXPECT_THAT(rows[1], HasSubstr("now written"));

    ToolRun nothing = kslog({"config", "--source", "KSCOM"});
    EXPECT_EQ(nothing.exitCode, 2);
    // An expression that does not compile would end every logging process that took it.
    ToolRun broken = kslog({"config", "--source", "KSCOM", "--segv", "(["});
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_THAT(broken.err, HasSubstr("not a valid regular expression"));
    EXPECT_EQ(kscom->log(RedisLogger::ERROR, "still alive"), 0);
}

TEST_F(Kslog, TailFollowShowsAnEntryWrittenAfterItStarted)
{
    auto kscom = logger("KSCOM");
    kscom->log(RedisLogger::ERROR, "old entry");

    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    int devnull = open("/dev/null", O_WRONLY);
    pid_t pid = spawn({"tail", "-n", "1", "-f", "--socket", m_redis.cache().socketPath()}, fds[1], devnull);
    close(fds[1]);
    close(devnull);

    std::string seen;
    auto readUntil = [&](std::string const& text) {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (seen.find(text) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
            pollfd p{fds[0], POLLIN, 0};
            if (poll(&p, 1, 50) > 0) {
                char buffer[1024];
                ssize_t n = read(fds[0], buffer, sizeof buffer);
                if (n > 0)
                    seen.append(buffer, static_cast<size_t>(n));
            }
        }
        return seen.find(text) != std::string::npos;
    };
    EXPECT_TRUE(readUntil("old entry"));
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (m_redis.cache().command({"PUBSUB", "NUMSUB", "LOG:ENTRIES"}).elements[1].integer < 1 &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kscom->log(RedisLogger::WARN, "new entry");
    EXPECT_TRUE(readUntil("new entry")) << seen;

    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    close(fds[0]);
}

TEST_F(Kslog, ExplainsAnUnreachableServerAndWrongUsageWithoutCrashing)
{
    TempDir empty("kv-none");
    for (char const* command : {"count", "list", "clear", "tail"}) {
        ToolRun run = kslog({command, "--socket", empty.file("none.sock")});
        EXPECT_EQ(run.exitCode, 1) << command;
        EXPECT_THAT(run.err, HasSubstr("cannot reach Redis at " + empty.file("none.sock"))) << command;
    }

    ToolRun unknown = kslog({"list", "--bogus"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_THAT(unknown.err, HasSubstr("unknown option \"--bogus\""));

    for (char const* command : {"tail", "list", "count", "clear", "config"}) {
        ToolRun help = kslog({command, "--help"});
        EXPECT_EQ(help.exitCode, 0) << command;
        EXPECT_THAT(help.out, HasSubstr("Example:\n  kslog " + std::string(command))) << command;
    }
    EXPECT_THAT(kslog({"list", "--help"}).out, HasSubstr("INSIDE the\n                     Redis server"));
}

} // namespace

namespace {

// True once the log list holds an entry with the given text.
bool listed(std::string const& socketPath, char const* text)
{
    redisContext* c = redisConnectUnix(socketPath.c_str());
    bool found = false;
    if (c != nullptr && c->err == 0) {
        auto* reply = static_cast<redisReply*>(redisCommand(c, "LRANGE LOG:ENTRIES 0 -1"));
        for (size_t i = 0; reply != nullptr && i < reply->elements; ++i)
            found = found || strstr(reply->element[i]->str, text) != nullptr;
        if (reply != nullptr)
            freeReplyObject(reply);
    }
    if (c != nullptr)
        redisFree(c);
    return found;
}

TEST_F(Kslog, ConfigEnablingDebugChangesWhatTheLoadedPluginWrites)
{
    std::string const cache = m_redis.cache().socketPath();
    orv::test::ScopedEnv noBus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_dir.file("no-bus"));
    // The plug-in's subscription reaches the server a moment after the load: wait for it, so the
    // published configuration is not lost, then enable DEBUG for the plug-in's logger.
    ToolRun config;
    std::thread configure([&] {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (orv::test::RedisServer::numberOfSubscribers(cache, RedisLogger::getLoggerCfgKey()) < 1 &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        config = kslog({"config", "--source", "KSCOM", "--enable", "DEBUG,ERROR"});
    });
    // VORN_init writes a DEBUG entry, dropped by the initial mask until the configuration arrives.
    orv::test::ChildResult child = orv::test::runWithPlugin([&](orv::test::LoadedPlugin& plugin) {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            plugin.init();
            if (listed(cache, "void* VORN_init()() "))
                return 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return 1;
    });
    configure.join();
    ASSERT_EQ(config.exitCode, 0) << config.err;
    ASSERT_EQ(child.exitCode, 0) << child.errors;

    std::vector<std::string> const entries = m_redis.cache().lrange("LOG:ENTRIES");
    auto const applied = std::find_if(entries.begin(), entries.end(), [](std::string const& e) {
        return e.find("\"S\":\"KSCOM\"") != std::string::npos &&
               e.find("Applying new log configuration: mask(0x21)") != std::string::npos;
    });
    ASSERT_NE(applied, entries.end());
    auto const isInit = [](std::string const& e) {
        return e.find("void* VORN_init()() ") != std::string::npos;
    };
    EXPECT_EQ(std::count_if(entries.begin(), applied, isInit), 0);
    EXPECT_GE(std::count_if(applied, entries.end(), isInit), 1);
}

} // namespace
