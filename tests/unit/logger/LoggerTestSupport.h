// A real Redis pair (log cache and permanent store) for one logger test, with short helpers to
// read back what the logger wrote.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RedisServer.h"
#include "logger/RedisLogger.h"

namespace orv::test {

class RedisLoggerTest : public ::testing::Test
{
protected:
    using RedisLogger = Logger::RedisLogger;
    using Entry = std::map<std::string, std::string>;

    RedisServer& redis() { return m_env.cache(); }
    std::string lastEntry() { return redis().lrange("LOG:ENTRIES", -1, -1).at(0); }

    std::unique_ptr<RedisLogger> makeLogger(char const* source = "KSCOM", bool subscribe = false)
    {
        return std::make_unique<RedisLogger>(source, redis().socketPath().c_str(), "LOG:ENTRIES", subscribe);
    }

    // One member of an entry's raw text, found with a plain search rather than a JSON parser, so
    // escapes stay as written. The message is the last member: it runs to the closing `"}`. A key
    // that is missing leaves begin below key.size() + 4 (npos wraps round).
    static std::string member(std::string const& entry, std::string const& key)
    {
        size_t const begin = entry.find("\"" + key + "\":\"") + key.size() + 4;
        size_t const end = key == "M" ? entry.rfind("\"}") : entry.find('"', begin);
        return begin < key.size() + 4 || end < begin ? "<no " + key + ">" : entry.substr(begin, end - begin);
    }

    static bool waitUntil(std::function<bool()> const& condition)
    {
        for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(5)))
            if (condition())
                return true;
        return false;
    }

    RedisEnvironment m_env;
};

} // namespace orv::test
