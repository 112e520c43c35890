#include "DeviceBus.h"

#include <algorithm>

#include "Umockdev.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace orv {
namespace test {

namespace {
DeviceBus* const registered = static_cast<DeviceBus*>(::testing::AddGlobalTestEnvironment(new DeviceBus));
}

DeviceBus& DeviceBus::instance()
{
    return *registered;
}

void DeviceBus::SetUp()
{
    WithoutUmockdevPreload servers;
    m_redis = std::make_unique<RedisEnvironment>();
    m_logger = std::make_unique<Logger::RedisLogger>("KSCOM", m_redis->cache().socketPath().c_str(),
                                                     "LOG:ENTRIES", false);
    m_logger->setConfigMask(0xFF);
    m_bus = std::make_unique<DBusDaemon>();
    m_connector = std::make_unique<MirelDBusConnector>(*m_logger);
}

void DeviceBus::TearDown()
{
    m_connector.reset();
    m_bus.reset();
    m_logger.reset();
    m_redis.reset();
}

std::vector<std::string> DeviceBus::messages()
{
    std::vector<std::string> result;
    for (std::string const& entry : m_redis->cache().lrange("LOG:ENTRIES")) {
        QJsonObject const object = QJsonDocument::fromJson(QByteArray::fromStdString(entry)).object();
        result.push_back(object.value("M").toString().toStdString());
    }
    return result;
}

void DeviceBus::clearLog()
{
    m_redis->cache().del("LOG:ENTRIES");
}

} // namespace test
} // namespace orv
