// Replies of the camera's device services, as the bus delivers them: each input is one marshalled
// message. The codec decodes it directly, whatever kind of message it is: every value it keeps must be
// readable, and the plain ones among them must encode and decode back unchanged. Then the message
// answers every operation of the connector in turn, which checks what was decoded.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <dbus/dbus.h>

#include "RedisServer.h"
#include "device/DBusMessageCodec.h"
#include "device/MirelDBusConnector.h"
#include "logger/RedisLogger.h"

namespace {

using orv::DBUS_ARG_T;

struct MessageUnref
{
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using MessagePtr = std::unique_ptr<DBusMessage, MessageUnref>;

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

orv::Logger::RedisLogger& logger()
{
    static auto* redis = new orv::test::RedisEnvironment;
    static auto* made = [] {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        auto* made =
            new orv::Logger::RedisLogger("KSCOM", redis->cache().socketPath().c_str(), "LOG:ENTRIES", false);
        made->setConfig(0xFF, 100, "");
        return made;
    }();
    return *made;
}

void require(bool condition, char const* what)
{
    if (!condition) {
        fprintf(stderr, "decoded values: %s\n", what);
        abort();
    }
}

bool isText(int type)
{
    return type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH || type == DBUS_TYPE_SIGNATURE;
}

// Outside a dictionary only the types the connector reads may appear; inside one, any basic type.
void requireReadable(DBUS_ARG_T const& value, bool inDictionary)
{
    if (isText(value.type)) {
        require(value.value.s != nullptr && value.storage != nullptr, "a text without its storage");
        require(dbus_validate_utf8(value.value.s, nullptr), "a text that is not UTF-8");
        require(inDictionary || value.type == DBUS_TYPE_STRING, "a path or signature outside a dictionary");
        return;
    }
    if (value.type == DBUS_TYPE_DICT_ENTRY) {
        require(!inDictionary, "a dictionary inside a dictionary");
        require(value.value.dict != nullptr && value.storage != nullptr, "a dictionary without its storage");
        for (auto const& entry : *value.value.dict)
            requireReadable(entry.second, true);
        return;
    }
    if (inDictionary)
        require(dbus_type_is_basic(value.type), "a dictionary value that is not a basic type");
    else
        require(value.type == DBUS_TYPE_BOOLEAN || value.type == DBUS_TYPE_INT32 ||
                    value.type == DBUS_TYPE_UINT32 || value.type == DBUS_TYPE_BYTE,
                "an unsupported type outside a dictionary");
    require(value.type != DBUS_TYPE_BOOLEAN || value.value.u <= 1, "a boolean other than 0 or 1");
}

// The values other than dictionaries are the ones a call can send: sent and decoded again, they
// come back the same.
void requireRoundTrip(orv::DBusMessageCodec const& codec, std::list<DBUS_ARG_T> const& decoded)
{
    std::list<DBUS_ARG_T> plain;
    for (DBUS_ARG_T const& value : decoded)
        if (value.type != DBUS_TYPE_DICT_ENTRY)
            plain.push_back(value);
    MessagePtr message(dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN));
    require(message != nullptr, "no message to encode into");
    require(orv::DBusMessageCodec::encode(message.get(), plain), "a decoded value that cannot be sent");
    std::list<DBUS_ARG_T> again;
    require(codec.decode(message.get(), again) == 0, "sent values that do not decode");
    require(again.size() == plain.size(), "a different number of values after sending");
    auto it = again.begin();
    for (DBUS_ARG_T const& value : plain) {
        require(it->type == value.type, "a different type after sending");
        if (isText(value.type))
            require(strcmp(it->value.s, value.value.s) == 0, "a different text after sending");
        else
            require(it->value.u == value.value.u, "a different number after sending");
        ++it;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static orv::DBusMessageCodec const codec(logger());
    static auto* device = new RecordedReplies(logger());
    device->reply.assign(reinterpret_cast<char const*>(data), size);

    MessagePtr message(dbus_message_demarshal(device->reply.data(), static_cast<int>(size), nullptr));
    if (message) {
        std::list<DBUS_ARG_T> decoded;
        codec.decode(message.get(), decoded);
        message.reset(); // the values must not depend on the message they came from
        for (DBUS_ARG_T const& value : decoded)
            requireReadable(value, false);
        requireRoundTrip(codec, decoded);
    }

    std::string text;
    std::map<std::string, std::string> info;
    std::vector<int> indices;
    std::map<std::string, unsigned int> counters;
    int value = 0;
    device->releaseTrigger();
    device->getDeviceParam("Name", text);
    device->getHWInfo(info);
    device->setIO(3, 1);
    device->getIO(3, value);
    device->getIOMode(3, value);
    device->getApplicationList(indices, value);
    device->activateApplication(2);
    device->getStatisticData(counters);
    return 0;
}
