// Replies of the camera's device services, as the bus delivers them: each input is one marshalled
// message, answered to every operation of the connector in turn, which decodes and checks it.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <dbus/dbus.h>

#include "RedisServer.h"
#include "device/MirelDBusConnector.h"
#include "logger/RedisLogger.h"

namespace {

// A connector whose every call is answered with the recorded reply, without a bus.
class RecordedReplies : public orv::MirelDBusConnector
{
public:
    using MirelDBusConnector::MirelDBusConnector;
    std::string reply;

protected:
    DBusMessage* exchange(DBusMessage*) override
    {
        return dbus_message_demarshal(reply.data(), static_cast<int>(reply.size()), nullptr);
    }
};

RecordedReplies& connector()
{
    static auto* redis = new orv::test::RedisEnvironment;
    static auto* logger = [] {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        auto* made =
            new orv::Logger::RedisLogger("KSCOM", redis->cache().socketPath().c_str(), "LOG:ENTRIES", false);
        made->setConfig(0xFF, 100, "");
        return made;
    }();
    static auto* made = new RecordedReplies(*logger);
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    RecordedReplies& device = connector();
    device.reply.assign(reinterpret_cast<char const*>(data), size);
    std::string text;
    std::map<std::string, std::string> info;
    std::vector<int> indices;
    std::map<std::string, unsigned int> counters;
    int value = 0;
    device.releaseTrigger();
    device.getDeviceParam("Name", text);
    device.getHWInfo(info);
    device.setIO(3, 1);
    device.getIO(3, value);
    device.getIOMode(3, value);
    device.getApplicationList(indices, value);
    device.activateApplication(2);
    device.getStatisticData(counters);
    return 0;
}
