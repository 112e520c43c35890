// One private bus, one Redis and one device connector for the whole test program, as in the
// plug-in: the connector claims its bus name once per process.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DBusDaemon.h"
#include "RedisServer.h"
#include "device/MirelDBusConnector.h"
#include "logger/RedisLogger.h"

namespace orv {
namespace test {

class DeviceBus : public ::testing::Environment
{
public:
    static DeviceBus& instance();

    void SetUp() override;
    void TearDown() override;

    MirelDBusConnector& connector() { return *m_connector; }
    Logger::RedisLogger& logger() { return *m_logger; }
    // The messages logged since the last clearLog, oldest first.
    std::vector<std::string> messages();
    void clearLog();

private:
    std::unique_ptr<RedisEnvironment> m_redis;
    std::unique_ptr<Logger::RedisLogger> m_logger;
    std::unique_ptr<DBusDaemon> m_bus;
    std::unique_ptr<MirelDBusConnector> m_connector;
};

} // namespace test
} // namespace orv
