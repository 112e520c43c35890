#include <csignal>
#include <regex>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoggerTestSupport.h"

using namespace orv::test;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

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
    EXPECT_THAT(entry, MatchesRegex("\\{\"T\":\"[0-9]+\\.[0-9]{4}\".*"));
    EXPECT_EQ(entry.substr(entry.find("\", \"P\"")), expectedTail);
}
} // namespace
