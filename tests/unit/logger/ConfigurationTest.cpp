#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoggerTestSupport.h"

using namespace orv::test;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

char const kAnnouncement[] = "Applying new log configuration: ";

class Configuration : public RedisLoggerTest
{
protected:
    long long subscribers()
    {
        RedisReply r = redis().command({"PUBSUB", "NUMSUB", "LOGGER:CFG"});
        return r.elements.size() == 2 ? r.elements[1].integer : -1;
    }

    std::vector<std::string> announcements()
    {
        std::vector<std::string> found;
        for (auto const& e : redis().lrange("LOG:ENTRIES"))
            if (message(e).rfind(kAnnouncement, 0) == 0)
                found.push_back(e);
        return found;
    }

    // Publish/subscribe keeps order, so once the announcement of a later text is in, every
    // earlier text has been handled.
    bool waitForAnnouncements(size_t n)
    {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < deadline) {
            if (announcements().size() >= n)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }
};

TEST_F(Configuration, OneListenerServesAllLoggersAndStopsWithTheLastOne)
{
    auto kscom = makeLogger("KSCOM", true);
    auto persister = makeLogger("ResultModelRedisPersister", true);
    waitForSubscribers("LOGGER:CFG", 1);
    EXPECT_EQ(subscribers(), 1);

    kscom.reset();
    redis().publish("LOGGER:CFG", R"({"source":"all","mask":255})");
    ASSERT_TRUE(waitForAnnouncements(1));
    EXPECT_EQ(member(announcements()[0], "S"), "ResultModelRedisPersister");

    persister.reset();
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (subscribers() != 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(subscribers(), 0);

    // A later logger starts the listener again.
    auto again = makeLogger("KSCOM", true);
    waitForSubscribers("LOGGER:CFG", 1);
    redis().publish("LOGGER:CFG", R"({"source":"KSCOM","max":77})");
    ASSERT_TRUE(waitForAnnouncements(2));
    EXPECT_THAT(message(announcements()[1]), HasSubstr("max logs(77)"));
}

TEST_F(Configuration, AppliesTextsForItsSourceOrAllAndIgnoresTheRest)
{
    auto kscom = makeLogger("KSCOM", true);
    auto persister = makeLogger("ResultModelRedisPersister", true);
    waitForSubscribers("LOGGER:CFG", 1);

    redis().publish("LOGGER:CFG", R"({"source":"all","mask":255})");
    ASSERT_TRUE(waitForAnnouncements(2));
    std::vector<std::string> sources;
    for (auto const& e : announcements()) {
        EXPECT_EQ(member(e, "C"), "INFO");
        EXPECT_THAT(message(e),
                    StartsWith("Applying new log configuration: mask(0xff), SigSegV Regexp(), max "
                               "logs(10000), instance(0x"));
        sources.push_back(member(e, "S"));
    }
    EXPECT_THAT(sources, ::testing::UnorderedElementsAre("KSCOM", "ResultModelRedisPersister"));
    kscom->log(RedisLogger::DEBUG, "now visible");
    EXPECT_EQ(message(lastEntry()), "now visible");

    int const otherPid = getpid() == 1 ? 2 : 1;
    ::testing::internal::CaptureStdout();
    redis().publish("LOGGER:CFG", R"({"source":"KSCOM","pid":)" + std::to_string(otherPid) + R"(,"max":50})");
    redis().publish("LOGGER:CFG", R"({"mask":1})");
    redis().publish("LOGGER:CFG", R"({"source":5,"mask":1})");
    redis().publish("LOGGER:CFG", "not json");
    // Right source, but a mask given as a string is ignored while the number beside it applies.
    redis().publish("LOGGER:CFG", R"({"source":"KSCOM","mask":"1","max":20})");
    ASSERT_TRUE(waitForAnnouncements(3));
    fflush(stdout);
    EXPECT_THAT(::testing::internal::GetCapturedStdout(),
                HasSubstr("Received no valid JSON config?! (not json)\n"));
    auto const third = announcements()[2];
    EXPECT_EQ(member(third, "S"), "KSCOM");
    EXPECT_THAT(message(third),
                StartsWith("Applying new log configuration: mask(0xff), SigSegV Regexp(), max logs(20)"));

    // The announcement is written even when INFO is masked out by the very change it announces.
    redis().publish("LOGGER:CFG", R"({"source":"KSCOM","pid":)" + std::to_string(getpid()) +
                                      R"(,"mask":240,"segvregex":"q{4}"})");
    ASSERT_TRUE(waitForAnnouncements(4));
    EXPECT_THAT(message(announcements()[3]), StartsWith("Applying new log configuration: mask(0xf0), SigSegV "
                                                        "Regexp(q{4}), max logs(20)"));
    long long const before = redis().llen("LOG:ENTRIES");
    kscom->log(RedisLogger::DEBUG, "hidden again");
    persister->log(RedisLogger::DEBUG, "still visible");
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), before + 1);
    EXPECT_EQ(member(lastEntry(), "S"), "ResultModelRedisPersister");
}

TEST_F(Configuration, ReachesALoggerThatAnotherThreadIsWritingWith)
{
    auto kscom = makeLogger("KSCOM", true);
    waitForSubscribers("LOGGER:CFG", 1);

    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; !stop; ++i)
            kscom->log(i % 2 ? RedisLogger::DEBUG : RedisLogger::WARN, "tick %d", i);
    });
    redis().publish("LOGGER:CFG", R"({"source":"all","mask":255,"max":100000})");

    bool debugSeen = false;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!debugSeen && std::chrono::steady_clock::now() < deadline) {
        for (auto const& e : redis().lrange("LOG:ENTRIES", -20, -1))
            debugSeen = debugSeen || member(e, "C") == "DEBUG";
    }
    stop = true;
    writer.join();
    EXPECT_TRUE(debugSeen);
    EXPECT_EQ(announcements().size(), 1u);
    for (auto const& e : redis().lrange("LOG:ENTRIES", 0, 200))
        ASSERT_EQ(e.back(), '}') << e;
}

TEST_F(Configuration, StoresConfigurationsThatLaterLoggersStartWith)
{
    auto tool = makeLogger("kslog", false);
    std::string all = "all";
    std::string kscomName = "KSCOM";
    std::string empty;

    EXPECT_FALSE(tool->saveConfig(all, 0xFFFFFFFF, 0, ""));
    EXPECT_EQ(permanent().hget("LOG:PERM:CFG", "all"), std::nullopt);
    EXPECT_EQ(member(lastEntry(), "C"), "WARN");
    EXPECT_EQ(message(lastEntry()), "saveConfig: No log configuration to save ?");
    EXPECT_FALSE(tool->saveConfig(empty, 0xF0, 5, ""));
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 2);

    // A successful store still reports false: the server answers with a number.
    EXPECT_FALSE(tool->saveConfig(all, 0xF8, 0, ""));
    EXPECT_EQ(permanent().hget("LOG:PERM:CFG", "all"), "{\n\"source\" : \"all\"\n,\"mask\" : 248\n}\n");
    EXPECT_FALSE(tool->saveConfig(kscomName, 0xFF, 3, "never-in-a-message"));
    EXPECT_EQ(permanent().hget("LOG:PERM:CFG", "KSCOM"),
              "{\n\"source\" : \"KSCOM\"\n,\"max\" : 3\n,\"mask\" : 255\n,\"segvregex\" : "
              "\"never-in-a-message\"\n}\n");

    redis().del("LOG:ENTRIES");
    auto kscom = makeLogger("KSCOM", true);    // "all", then its own record on top
    auto other = makeLogger("Other", true);    // "all" only
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 0); // loading is silent
    other->log(RedisLogger::INFO, "info from other");
    other->log(RedisLogger::DEBUG, "debug from other");
    EXPECT_EQ(message(lastEntry()), "info from other");
    for (int i = 0; i < 5; ++i)
        kscom->log(RedisLogger::DEBUG, "debug %d", i);
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 3);
    EXPECT_EQ(message(lastEntry()), "debug 4");

    std::string missing = "nobody";
    EXPECT_FALSE(tool->loadConfig(missing));
    EXPECT_TRUE(tool->loadConfig(all));

    permanent().stop();
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(tool->saveConfig(all, 0xF0, 0, ""));
    EXPECT_FALSE(tool->loadConfig(all));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "saveConfig: Redis connection problem for connecting via /tmp/redis.sock\n"
              "loadConfig: Redis connection problem for connecting via /tmp/redis-cache.sock\n");
}

TEST_F(Configuration, PushedTextsReachSubscribedLoggers)
{
    auto tool = makeLogger("kslog", false);
    auto kscom = makeLogger("KSCOM", true);
    waitForSubscribers("LOGGER:CFG", 1);

    std::string const text = R"({"source":"KSCOM","mask":1}trailing bytes not sent)";
    EXPECT_TRUE(tool->redisPushConfig(text.c_str(), 27));
    ASSERT_TRUE(waitForAnnouncements(1));
    EXPECT_THAT(message(announcements()[0]), HasSubstr("mask(0x1)"));
}

} // namespace
