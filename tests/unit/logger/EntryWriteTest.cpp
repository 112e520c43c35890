#include <csignal>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoggerTestSupport.h"

using namespace orv::test;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

namespace {

class EntryWrite : public RedisLoggerTest
{
};

TEST_F(EntryWrite, WritesOneJsonLineWithTimePidCategorySourceAndMessage)
{
    auto logger = makeLogger("KSCOM");
    ASSERT_EQ(logger->log(RedisLogger::ERROR, "%s: no result acquired", "getTmpFSData"), 0);

    std::string const entry = lastEntry();
    std::string const expectedTail =
        "\", \"P\":\"" + std::to_string(getpid()) +
        "\", \"C\":\"ERROR\", \"S\":\"KSCOM\", \"M\":\"getTmpFSData: no result acquired\"}";
    EXPECT_THAT(entry, MatchesRegex("\\{\"T\":\"[0-9]+\\.[0-9][0-9][0-9][0-9]\".*"));
    EXPECT_EQ(entry.substr(entry.find("\", \"P\"")), expectedTail);
}

TEST_F(EntryWrite, ReplacesControlAndHighBytesAndEscapesQuotesSlashesAndBackslashes)
{
    auto logger = makeLogger();
    logger->log(RedisLogger::WARN, "%s", "a\tb\"c/d");
    EXPECT_EQ(message(lastEntry()), "a#b\\\"c\\/d");

    logger->log(RedisLogger::WARN, "%s", "x\\y\n\r\b\f\x7f\xc3\xa9z");
    EXPECT_EQ(message(lastEntry()), "x\\\\y#######z");
    EXPECT_EQ(lastEntry().find('\n'), std::string::npos);
}

TEST_F(EntryWrite, CutsLongMessagesTo499CharactersAndSendsCutEntriesAsExactly500Bytes)
{
    auto logger = makeLogger();
    logger->log(RedisLogger::ERROR, "%s", std::string(600, 'x').c_str());

    std::string const entry = lastEntry();
    ASSERT_EQ(entry.size(), 500u);
    EXPECT_EQ(entry.back(), '\0');
    std::string const prefix = entry.substr(0, entry.find("\"M\":\"") + 5);
    EXPECT_EQ(entry.substr(0, 499), prefix + std::string(499 - prefix.size(), 'x'));

    // Escaping doubles quotes, so 300 of them overflow the entry too; the cut keeps whole bytes.
    logger->log(RedisLogger::ERROR, "%s", std::string(300, '"').c_str());
    EXPECT_EQ(lastEntry().size(), 500u);
    EXPECT_EQ(lastEntry().back(), '\0');

    // A short entry is sent without any terminating zero.
    logger->log(RedisLogger::ERROR, "short");
    EXPECT_EQ(lastEntry().back(), '}');
}

TEST_F(EntryWrite, WritesReadyMessagesOfTheGivenLengthOrUpToTheirZero)
{
    auto logger = makeLogger();
    EXPECT_EQ(logger->logFixed(RedisLogger::WARN, "abcdef", 3), 0);
    EXPECT_EQ(message(lastEntry()), "abc");
    EXPECT_EQ(logger->logFixed(RedisLogger::WARN, "abcdef", 0), 0);
    EXPECT_EQ(message(lastEntry()), "abcdef");

    std::string const huge(5000, 'q');
    EXPECT_EQ(logger->logFixed(RedisLogger::WARN, huge.c_str(), static_cast<unsigned>(huge.size())), 0);
    EXPECT_EQ(lastEntry().size(), 500u);
}

TEST_F(EntryWrite, WritesOnlyCategoriesInTheMaskAndNamesCombinedBitsUnknown)
{
    auto logger = makeLogger();
    EXPECT_EQ(logger->log(RedisLogger::INFO, "info"), 0);
    EXPECT_EQ(logger->log(RedisLogger::DEBUG, "debug"), 0);
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 0);

    auto const twoBits = static_cast<RedisLogger::Category>(0x03);
    EXPECT_EQ(logger->log(twoBits, "both"), 0);
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 0);

    logger->setConfigMask(0x01);
    logger->log(twoBits, "both");
    EXPECT_EQ(member(lastEntry(), "C"), "UNKNOWN");
    EXPECT_EQ(message(lastEntry()), "both");
    EXPECT_EQ(logger->log(RedisLogger::WARN, "warn"), 0);
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 1);

    logger->setConfigMask(0xFFFFFFFF);
    logger->log(static_cast<RedisLogger::Category>(0x100), "odd");
    EXPECT_EQ(member(lastEntry(), "C"), "UNKNOWN");
}

TEST_F(EntryWrite, WritesALogOnceTextOncePerProcessAcrossLoggers)
{
    auto first = makeLogger("A");
    auto second = makeLogger("B");
    first->logOnce(RedisLogger::WARN, "calibration %d missing", 7);
    first->logOnce(RedisLogger::WARN, "calibration %d missing", 7);
    second->logOnce(RedisLogger::WARN, "calibration %d missing", 7);
    first->logOnce(RedisLogger::WARN, "calibration %d missing", 8);

    auto const entries = redis().lrange("LOG:ENTRIES");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(message(entries[0]), "calibration 7 missing");
    EXPECT_EQ(message(entries[1]), "calibration 8 missing");
}

TEST_F(EntryWrite, KeepsOnlyTheNewestEntriesAfterEachWrite)
{
    auto logger = makeLogger();
    logger->setConfig(0xF0, 5, "");
    for (int i = 0; i < 20; ++i)
        logger->log(RedisLogger::ERROR, "entry %d", i);

    auto const entries = redis().lrange("LOG:ENTRIES");
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(message(entries.front()), "entry 15");
    EXPECT_EQ(message(entries.back()), "entry 19");
}

TEST_F(EntryWrite, ReportsTheLostServerOnceThenOnlyThatItIsNotConnected)
{
    signal(SIGPIPE, SIG_IGN); // as the configuration thread does for the whole process
    auto logger = makeLogger();
    ASSERT_EQ(logger->log(RedisLogger::ERROR, "before"), 0);
    redis().stop();

    ::testing::internal::CaptureStderr();
    int const first = logger->log(RedisLogger::ERROR, "after");
    std::string const firstErrors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(first, -1);
    EXPECT_THAT(firstErrors, MatchesRegex("(redisPushLog: [A-Z]+ LOG:ENTRIES .* failed!\n)?"
                                          "redisPushLog: failed with err: \\([1-9][0-9]*:.+\\)\n"));

    ::testing::internal::CaptureStderr();
    EXPECT_EQ(logger->log(RedisLogger::ERROR, "again"), -1);
    EXPECT_EQ(logger->log(RedisLogger::ERROR, "and again"), -1);
    EXPECT_EQ(logger->countLogs(), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "REDIS NOT CONNECTED !nREDIS NOT CONNECTED !nREDIS NOT CONNECTED !n");
}

TEST_F(EntryWrite, ConstructorsThrowWithTheConnectionsOwnErrorText)
{
    try {
        RedisLogger logger("KSCOM", "/nonexistent/redis.sock", "LOG:ENTRIES", false);
        FAIL() << "constructed without a server";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "No such file or directory");
    }
    try {
        RedisLogger logger("KSCOM", "127.0.0.1", 1, "LOG:ENTRIES", false);
        FAIL() << "constructed without a server";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "Connection refused");
    }
}

TEST_F(EntryWrite, CrashesOnAMatchingReadyMessageEvenWhenItsCategoryIsMaskedOut)
{
    auto logger = makeLogger();
    logger->setConfig(0xF0, 10000, "fatal");

    // log() drops a masked-out message before it could match.
    EXPECT_EQ(logger->log(RedisLogger::DEBUG, "a fatal thing"), 0);
    EXPECT_EQ(logger->logFixed(RedisLogger::WARN, "harmless", 0), 0);

    EXPECT_EXIT(
        {
            signal(SIGSEGV, SIG_DFL); // sanitizers catch SIGSEGV; the plain outcome is what matters
            logger->logFixed(RedisLogger::DEBUG, "a fatal thing", 0);
        },
        ::testing::KilledBySignal(SIGSEGV),
        "Will raise\\(SIGSEGV\\): a fatal thing matches configured regex\\(fatal\\)!");
}

} // namespace
