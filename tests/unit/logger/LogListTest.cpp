#include <atomic>
#include <csignal>
#include <ctime>
#include <string>
#include <thread>
#include <unistd.h>

#include "LoggerTestSupport.h"
#include "ResourceUsage.h"
#include "logger/LogEntryFormat.h"

using namespace orv::test;
using orv::Logger::LogEntryFormat;
using namespace ::testing;

namespace {

using EntryWrite = RedisLoggerTest;
using Query = RedisLoggerTest;

TEST_F(EntryWrite, WritesOneJsonLineWithMonotonicTimeAndAMessageWhoseControlBytesBecomeHashes)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    makeLogger("KSCOM")->log(RedisLogger::ERROR, "%s: a\tb\"c/d\\e\n\r\b\f\x7f\xc3\xa9z", "getData");

    std::string const entry = lastEntry(), pid = std::to_string(getpid());
    EXPECT_EQ(entry.substr(entry.find(", \"P\"")),
              ", \"P\":\"" + pid +
                  "\", \"C\":\"ERROR\", \"S\":\"KSCOM\", \"M\":\"getData: a#b\\\"c\\/d\\\\e#######z\"}");
    EXPECT_NEAR(std::stod(member(entry, "T")), double(now.tv_sec) + double(now.tv_nsec) / 1e9, 1.0);
    char fixed[LogEntryFormat::kEntrySize];
    LogEntryFormat::format(fixed, 12, 100000, 811, 0x20, "KSCOM", "m"); // seconds to four places
    EXPECT_STREQ(fixed, R"({"T":"12.0001", "P":"811", "C":"ERROR", "S":"KSCOM", "M":"m"})");
}

TEST_F(EntryWrite, CutsLongEntriesAndSendsThemAsExactly500BytesEndingInAZero)
{
    auto logger = makeLogger();
    logger->log(RedisLogger::ERROR, "%s", std::string(600, 'x').c_str());
    EXPECT_EQ(lastEntry().find_first_not_of('x', lastEntry().find("\"M\":\"") + 5), 499u);
    logger->log(RedisLogger::ERROR, "%s", std::string(300, '"').c_str()); // escaping doubles each quote
    logger->logFixed(RedisLogger::WARN, std::string(5000, 'q').c_str(), 5000);

    EXPECT_THAT(redis().lrange("LOG:ENTRIES"), Each(AllOf(SizeIs(500), EndsWith(std::string(1, '\0')))));
}

TEST_F(EntryWrite, WritesOnlyCategoriesInTheMaskAndNamesCombinedBitsUnknown)
{
    auto logger = makeLogger();
    auto const twoBits = static_cast<RedisLogger::Category>(0x03);
    EXPECT_EQ(logger->log(RedisLogger::INFO, "info"), 0); // the initial mask holds WARN to EMERG only
    logger->log(twoBits, "both, masked out");
    logger->log(RedisLogger::WARN, "warn");
    logger->setConfigMask(0x01);
    logger->log(twoBits, "both");

    EXPECT_THAT(redis().logMessages(), ElementsAre("warn", "both"));
    EXPECT_THAT(redis().logMessages("UNKNOWN"), ElementsAre("both"));
}

TEST_F(EntryWrite, WritesALogOnceTextOncePerProcessAcrossLoggers)
{
    auto first = makeLogger("A");
    first->logOnce(RedisLogger::WARN, "calibration %d missing", 7);
    makeLogger("B")->logOnce(RedisLogger::WARN, "calibration %d missing", 7);
    first->logOnce(RedisLogger::WARN, "calibration %d missing", 8);

    EXPECT_THAT(redis().logMessages(), ElementsAre("calibration 7 missing", "calibration 8 missing"));
}

TEST_F(EntryWrite, LoggersThatComeAndGoLeaveNoConnectionListenerOrMemoryBehind)
{
    auto lifetimes = [&](int count) {
        for (int i = 0; i < count; ++i) // every other one starts and stops the configuration listener
            makeLogger("brief", i % 2 == 0)->log(RedisLogger::ERROR, "entry %d", i);
    };
    lifetimes(4);
    ResourceUsage const before = ResourceUsage::now();
    lifetimes(60);
    ResourceUsage const growth = ResourceUsage::now() - before;
    EXPECT_TRUE(growth.descriptors == 0 && growth.heap < 2048) << growth.descriptors << " " << growth.heap;
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 64);
}

TEST_F(EntryWrite, ReportsTheLostServerOnceThenOnlyThatItIsNotConnected)
{
    signal(SIGPIPE, SIG_IGN); // as the configuration thread does for the whole process
    auto logger = makeLogger();
    redis().stop();

    internal::CaptureStderr();
    EXPECT_EQ(logger->log(RedisLogger::ERROR, "after"), -1);
    EXPECT_THAT(internal::GetCapturedStderr(),
                MatchesRegex("(redisPushLog: [A-Z]+ LOG:ENTRIES .* failed!\n)?"
                             "redisPushLog: failed with err: \\([1-9][0-9]*:.+\\)\n"));
    internal::CaptureStderr();
    EXPECT_EQ(logger->log(RedisLogger::ERROR, "again"), -1);
    EXPECT_EQ(logger->countLogs(), 0);
    EXPECT_EQ(internal::GetCapturedStderr(), "REDIS NOT CONNECTED !nREDIS NOT CONNECTED !n");
}

TEST_F(EntryWrite, WritesReadyMessagesOfTheGivenLengthAndCrashesOnAMatchEvenWhenMaskedOut)
{
    auto logger = makeLogger();
    logger->setConfig(0xF0, 10000, "fatal");
    EXPECT_EQ(logger->log(RedisLogger::DEBUG, "a fatal thing"), 0); // dropped before it could match
    EXPECT_EQ(logger->logFixed(RedisLogger::WARN, "abcdef", 3), 0);
    EXPECT_EQ(logger->logFixed(RedisLogger::WARN, "abcdef", 0), 0); // 0: up to the zero
    EXPECT_EQ(logger->logFixed(RedisLogger::DEBUG, "masked out", 0), 0);
    EXPECT_THAT(redis().logMessages(), ElementsAre("abc", "abcdef"));

    signal(SIGSEGV, SIG_DFL); // sanitizers catch SIGSEGV; the plain outcome is what matters
    EXPECT_EXIT(logger->logFixed(RedisLogger::DEBUG, "a fatal thing", 0), KilledBySignal(SIGSEGV),
                "Will raise\\(SIGSEGV\\): a fatal thing matches configured regex\\(fatal\\)!");
}

TEST_F(Query, CountsReadsFiltersInsideTheServerAndDeletesTheList)
{
    auto logger = makeLogger("KSCOM");
    logger->log(RedisLogger::ERROR, "first");
    logger->log(RedisLogger::WARN, "second");
    logger->log(RedisLogger::ERROR, "third");
    logger->log(RedisLogger::EMERG, "fourth");
    EXPECT_EQ(logger->countLogs(), 4);

    auto message = [](std::string const& text) { return Contains(Pair("M", text)); };
    std::vector<Entry> entries;
    ASSERT_TRUE(logger->getLogEntriesFiltered(entries, 0, -1, nullptr));
    EXPECT_THAT(entries,
                ElementsAre(message("first"), message("second"), message("third"), message("fourth")));
    // The filter is Lua over the raw entry, after the range.
    ASSERT_TRUE(logger->getLogEntriesFiltered(entries, 1, 3, R"(entry:find('"C":"ERROR"', 1, true))"));
    EXPECT_THAT(entries, ElementsAre(message("third")));

    // A filter that is not Lua leaves the result alone and shows the script.
    internal::CaptureStderr();
    EXPECT_FALSE(logger->getLogEntriesFiltered(entries, 0, -1, "entry =="));
    EXPECT_THAT(internal::GetCapturedStderr(), HasSubstr("if (entry ==) then"));
    EXPECT_THAT(entries, ElementsAre(message("third")));

    EXPECT_TRUE(logger->deleteLogs());
    redis().command({"RPUSH", "LOG:ENTRIES", "garbage", R"({"M":"partial","X":"extra"})"});
    ASSERT_TRUE(logger->getLogEntriesFiltered(entries, 0, -1, nullptr));
    auto unread = [](Entry entry) { // the members every entry has, "?" where a reader finds none
        entry.insert({{"T", "?"}, {"P", "?"}, {"C", "?"}, {"S", "?"}});
        return entry;
    };
    EXPECT_THAT(entries, ElementsAre(unread({{"M", "Unrecognized entry"}, {"raw", "garbage"}}),
                                     unread({{"M", "partial"}, {"X", "extra"}})));
}

TEST_F(Query, FollowsNewEntriesUntilTheServerDropsTheConnection)
{
    static std::vector<Entry> followed; // the follower's own until it has ended
    static std::atomic<bool> seen;
    followed.clear(), seen = false; // a repeated run shares them
    auto logger = makeLogger("KSCOM");
    std::thread follower(
        [&] { logger->subscribeLatest([](Entry& e) { followed.push_back(e), seen = true; }); });
    EXPECT_TRUE(redis().waitForSubscribers("LOG:ENTRIES"));
    logger->log(RedisLogger::ERROR, "seen live");
    EXPECT_TRUE(waitUntil([] { return seen.load(); }));

    // The follower notes the dropped connection on standard output ("Error: ...") and returns.
    redis().command({"CLIENT", "KILL", "TYPE", "pubsub"});
    follower.join();
    EXPECT_THAT(followed, ElementsAre(AllOf(Contains(Pair("M", "seen live")), Contains(Pair("S", "KSCOM")))));
    // Without a server it returns at once, saying why.
    redis().stop();
    internal::CaptureStderr();
    logger->subscribeLatest([](Entry&) {});
    EXPECT_THAT(internal::GetCapturedStderr(), StartsWith("Error: "));
}

} // namespace
