// Answers one item of the device's identity or network settings, selected by a text key.
#pragma once

#include <map>
#include <string>

#include <cstdint>

#include "core/VORNCommand.h"

namespace orv {

class IMirelConnector;
class QueryDeviceInfo;
namespace Logger {
class RedisLogger;
}

class VORNQueryDeviceInfo : public VORNCommand
{
public:
    VORNQueryDeviceInfo(IMirelConnector* connector, Logger::RedisLogger& logger);
    ~VORNQueryDeviceInfo() override;

    VORNQueryDeviceInfo(VORNQueryDeviceInfo const&) = delete;
    VORNQueryDeviceInfo& operator=(VORNQueryDeviceInfo const&) = delete;

    DataBlock* execute(DataBlock const* request) override;

private:
    [[maybe_unused]] Logger::RedisLogger& m_logger;    // held like every command's; this one writes no entry
    std::map<std::string, QueryDeviceInfo*> m_queries; // owned
    [[maybe_unused]] IMirelConnector* m_connector;     // each query holds its own; kept for whoever looks
};

struct VORNDeviceInfoReply
{
    int32_t status;
    char key[256];   // not terminated when the key fills all 256 bytes
    char value[256]; // likewise
};

static_assert(sizeof(VORNDeviceInfoReply) == 516, "device-info reply is 516 bytes");

} // namespace orv
