// A real Redis pair (log cache and permanent store) for one logger test, with short helpers to
// read back what the logger wrote.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "RedisServer.h"
#include "logger/RedisLogger.h"

namespace orv {
namespace test {

class RedisLoggerTest : public ::testing::Test
{
protected:
    using RedisLogger = Logger::RedisLogger;

    RedisServer& redis() { return m_env->cache(); }
    RedisServer& permanent() { return m_env->permanent(); }

    std::unique_ptr<RedisLogger> makeLogger(char const* source = "KSCOM", bool subscribe = false)
    {
        return std::make_unique<RedisLogger>(source, redis().socketPath().c_str(), "LOG:ENTRIES", subscribe);
    }

    std::string lastEntry()
    {
        auto entries = redis().lrange("LOG:ENTRIES", -1, -1);
        return entries.empty() ? std::string() : entries.front();
    }

    // The value of one member of an entry, read with a plain search rather than the logger's parser.
    static std::string member(std::string const& entry, std::string const& key);
    static std::string message(std::string const& entry) { return member(entry, "M"); }

    // Waits until n clients listen on the channel (publish/subscribe loses earlier messages).
    void waitForSubscribers(char const* channel, long long n);
    // Waits until the list holds at least n entries.
    bool waitForEntries(long long n, int timeoutMs = 5000);

    void SetUp() override { m_env = std::make_unique<RedisEnvironment>(); }
    void TearDown() override { m_env.reset(); }

private:
    std::unique_ptr<RedisEnvironment> m_env;
};

} // namespace test
} // namespace orv
