#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoggerTestSupport.h"

using namespace orv::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

using Entry = std::map<std::string, std::string>;

class Query : public RedisLoggerTest
{
protected:
    static std::vector<std::string> messages(std::vector<Entry> const& entries)
    {
        std::vector<std::string> out;
        for (auto const& e : entries)
            out.push_back(e.at("M"));
        return out;
    }
};

TEST_F(Query, CountsAndDeletesTheList)
{
    auto logger = makeLogger();
    EXPECT_EQ(logger->countLogs(), 0);
    for (int i = 0; i < 3; ++i)
        logger->log(RedisLogger::ERROR, "e%d", i);
    EXPECT_EQ(logger->countLogs(), 3);

    EXPECT_TRUE(logger->deleteLogs());
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 0);
    EXPECT_EQ(logger->countLogs(), 0);
}

TEST_F(Query, ReadsRangesAndFiltersWithALuaExpressionRunInsideTheServer)
{
    auto logger = makeLogger("KSCOM");
    logger->log(RedisLogger::ERROR, "first");
    logger->log(RedisLogger::WARN, "second");
    logger->log(RedisLogger::ERROR, "third");
    logger->log(RedisLogger::EMERG, "fourth");

    std::vector<Entry> entries;
    ASSERT_TRUE(logger->getLogEntriesFiltered(entries, 0, -1, nullptr));
    EXPECT_THAT(messages(entries), ElementsAre("first", "second", "third", "fourth"));
    EXPECT_EQ(entries[1].at("C"), "WARN");
    EXPECT_EQ(entries[1].at("S"), "KSCOM");
    EXPECT_EQ(entries[1].at("P"), std::to_string(getpid()));
    EXPECT_EQ(entries[1].size(), 5u);

    ASSERT_TRUE(logger->getLogEntriesFiltered(entries, -2, -1, nullptr));
    EXPECT_THAT(messages(entries), ElementsAre("third", "fourth"));

    ASSERT_TRUE(
        logger->getLogEntriesFiltered(entries, 0, -1, R"(string.find(entry, '"C":"ERROR"', 1, true))"));
    EXPECT_THAT(messages(entries), ElementsAre("first", "third"));

    // The range bounds apply before the filter.
    ASSERT_TRUE(
        logger->getLogEntriesFiltered(entries, 1, 3, R"(string.find(entry, '"C":"ERROR"', 1, true))"));
    EXPECT_THAT(messages(entries), ElementsAre("third"));
}

TEST_F(Query, LeavesTheResultAloneAndShowsTheScriptWhenTheFilterIsNotLua)
{
    auto logger = makeLogger();
    logger->log(RedisLogger::ERROR, "one");
    std::vector<Entry> entries{{{"M", "kept"}}};

    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(logger->getLogEntriesFiltered(entries, 0, -1, "entry =="));
    std::string const errors = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(errors, HasSubstr("getLogEntriesFiltered: "));
    EXPECT_THAT(errors, HasSubstr("local entries=redis.call('LRANGE', 'LOG:ENTRIES', '0', '-1')\n"));
    EXPECT_THAT(errors, HasSubstr("if (entry ==) then"));
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].at("M"), "kept");
}

TEST_F(Query, ReadsEntriesItCannotParseAsUnrecognized)
{
    auto logger = makeLogger();
    redis().command({"RPUSH", "LOG:ENTRIES", "garbage", R"({"M":"partial","X":"extra"})"});

    std::vector<Entry> entries;
    ASSERT_TRUE(logger->getLogEntriesFiltered(entries, 0, -1, nullptr));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0],
              (Entry{{"T", "?"}, {"P", "?"}, {"C", "?"}, {"S", "?"}, {"M", "Unrecognized entry"}}));
    EXPECT_EQ(entries[1],
              (Entry{{"T", "?"}, {"P", "?"}, {"C", "?"}, {"S", "?"}, {"M", "partial"}, {"X", "extra"}}));

    // An empty list is a successful read of nothing.
    logger->deleteLogs();
    EXPECT_TRUE(logger->getLogEntriesFiltered(entries, 0, -1, nullptr));
    EXPECT_TRUE(entries.empty());
}

std::mutex g_followedMutex;
std::vector<Entry> g_followed;

void follow(Entry& entry)
{
    std::lock_guard<std::mutex> lock(g_followedMutex);
    g_followed.push_back(entry);
}

TEST_F(Query, FollowsEntriesAsTheyArePublishedUntilTheServerDropsTheConnection)
{
    auto writer = makeLogger("KSCOM");
    auto reader = makeLogger("kslog");
    std::thread follower([&] { reader->subscribeLatest(follow); });
    waitForSubscribers("LOG:ENTRIES", 1);

    writer->log(RedisLogger::ERROR, "seen live");
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(g_followedMutex);
            if (!g_followed.empty() || std::chrono::steady_clock::now() > deadline)
                break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    ::testing::internal::CaptureStdout();
    redis().command({"CLIENT", "KILL", "TYPE", "pubsub"});
    follower.join(); // returns once disconnected
    fflush(stdout);
    ::testing::internal::GetCapturedStdout();

    std::lock_guard<std::mutex> lock(g_followedMutex);
    ASSERT_EQ(g_followed.size(), 1u);
    EXPECT_EQ(g_followed[0].at("M"), "seen live");
    EXPECT_EQ(g_followed[0].at("C"), "ERROR");
    EXPECT_EQ(g_followed[0].at("S"), "KSCOM");
}

} // namespace
