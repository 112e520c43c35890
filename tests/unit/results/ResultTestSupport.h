// A camera's result side for one test: the Redis pair, a frame directory with a publisher, and a
// logger that records every category, with helpers to publish frames and read the log back.
// The Redis pair lives as long as the test program and is emptied before each test: the result
// persisters of a process share one logger, made once on the cache the first persister reached.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "logger/RedisLogger.h"
#include "resultsync/FramePublisher.h"

namespace orv {
namespace test {

class ResultTestBase : public ::testing::Test
{
protected:
    using RedisLogger = Logger::RedisLogger;

    void SetUp() override
    {
        redis().command({"FLUSHALL"});
        m_logger = std::make_unique<RedisLogger>("TEST", redis().socketPath().c_str(), "LOG:ENTRIES", false);
        m_logger->setConfig(0xFF, 10000, "");
        m_publisher = std::make_unique<resultsync::FramePublisher>(8, m_frames.path());
    }
    void TearDown() override
    {
        m_publisher.reset();
        m_logger.reset();
    }

    static RedisServer& redis()
    {
        static RedisEnvironment environment;
        return environment.cache();
    }
    RedisLogger& logger() { return *m_logger; }
    resultsync::FramePublisher& publisher() { return *m_publisher; }
    std::string const& frameDir() const { return m_frames.path(); }

    void publish(std::string const& id, std::vector<resultsync::FramePublisher::Item> const& items)
    {
        ASSERT_TRUE(m_publisher->publish(id, items));
    }

    // Messages of every entry written so far, as the log stores them (a slash comes escaped).
    std::vector<std::string> messages()
    {
        std::vector<std::string> out;
        for (std::string const& entry : redis().lrange("LOG:ENTRIES")) {
            std::string const start = "\"M\":\"";
            size_t begin = entry.find(start);
            if (begin == std::string::npos)
                continue;
            begin += start.size();
            size_t end = begin;
            while (end < entry.size() && !(entry[end] == '"' && entry[end - 1] != '\\'))
                ++end;
            out.push_back(entry.substr(begin, end - begin));
        }
        return out;
    }
    bool logged(std::string const& message)
    {
        for (std::string const& m : messages())
            if (m == message)
                return true;
        return false;
    }

private:
    TempDir m_frames{"kv-frames"};
    ScopedEnv m_frameEnv{"ORV_FRAME_DIR", m_frames.path()};
    std::unique_ptr<RedisLogger> m_logger;
    std::unique_ptr<resultsync::FramePublisher> m_publisher;
};

} // namespace test
} // namespace orv
