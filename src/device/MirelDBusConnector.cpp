#include "device/MirelDBusConnector.h"

#include <cstdio>
#include <memory>
#include <mutex>

#include <dbus/dbus.h>

#include "core/VornStatus.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;

namespace orv {

namespace {

struct MessageUnref
{
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
struct PendingUnref
{
    void operator()(DBusPendingCall* pending) const { dbus_pending_call_unref(pending); }
};
using MessagePtr = std::unique_ptr<DBusMessage, MessageUnref>;
using PendingPtr = std::unique_ptr<DBusPendingCall, PendingUnref>;

constexpr char const* kBusName = "com.orv.lrae";
constexpr char const* kImager = "com.orv.imager";
constexpr char const* kParameters = "com.orv.quillon";
constexpr char const* kIOManager = "com.orv.iom";

} // namespace

MirelDBusConnector::MirelDBusConnector(RedisLogger& logger)
    : m_connection(nullptr), m_error(new DBusError), m_logger(logger), m_codec(logger)
{
    // libdbus must know it runs threaded before the first connection exists.
    static std::once_flag threadsReady;
    std::call_once(threadsReady, [] { dbus_threads_init_default(); });

    dbus_error_init(m_error);
    m_connection = dbus_bus_get(DBUS_BUS_SYSTEM, m_error);
    if (dbus_error_is_set(m_error)) {
        m_logger.log(RedisLogger::ERROR, "Connection Error (%s)", m_error->message);
        dbus_error_free(m_error);
        m_connection = nullptr;
        return;
    }
    if (m_connection == nullptr)
        return;
    // A shared bus connection exits the process when the bus goes away; the host must survive that.
    dbus_connection_set_exit_on_disconnect(m_connection, FALSE);

    int const reply = dbus_bus_request_name(m_connection, kBusName, DBUS_NAME_FLAG_REPLACE_EXISTING, m_error);
    if (dbus_error_is_set(m_error)) {
        m_logger.log(RedisLogger::ERROR, "Name Error (%s)", m_error->message);
        dbus_error_free(m_error);
    }
    if (reply == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) {
        m_logger.log(RedisLogger::INFO, "DBUS connection successful");
        return;
    }
    // The bus connection itself is shared and deliberately kept; only this connector gives up.
    m_connection = nullptr;
}

MirelDBusConnector::~MirelDBusConnector()
{
    if (m_connection != nullptr)
        dbus_connection_unref(m_connection);
    delete m_error;
}

int MirelDBusConnector::dbusCall(std::string service, std::string method, std::list<DBUS_ARG_T>& in,
                                 std::list<DBUS_ARG_T>& out)
{
    MessagePtr request(dbus_message_new_method_call(service.c_str(), "/", service.c_str(), method.c_str()));
    if (!request) {
        m_logger.log(RedisLogger::ERROR, "Message Null");
        return VornStatus::DeviceFailure;
    }
    if (!DBusMessageCodec::encode(request.get(), in)) {
        m_logger.log(RedisLogger::ERROR, "Out Of Memory!");
        return VornStatus::DeviceFailure;
    }

    MessagePtr reply(exchange(request.get()));
    request.reset();
    if (!reply)
        return VornStatus::DeviceFailure;
    if (dbus_message_get_type(reply.get()) == DBUS_MESSAGE_TYPE_ERROR) {
        char const* name = dbus_message_get_error_name(reply.get());
        m_logger.log(RedisLogger::ERROR, "Error calling dbus method: %s", name != nullptr ? name : "");
        return VornStatus::DeviceFailure;
    }
    return m_codec.decode(reply.get(), out);
}

DBusMessage* MirelDBusConnector::exchange(DBusMessage* request)
{
    // Without a connection every call fails at once, without a message.
    if (m_connection == nullptr)
        return nullptr;
    DBusPendingCall* rawPending = nullptr;
    if (!dbus_connection_send_with_reply(m_connection, request, &rawPending, DBUS_TIMEOUT_USE_DEFAULT)) {
        m_logger.log(RedisLogger::ERROR, "Out Of Memory!");
        return nullptr;
    }
    if (rawPending == nullptr) {
        m_logger.log(RedisLogger::ERROR, "Pending Call Null");
        return nullptr;
    }
    PendingPtr pending(rawPending);
    dbus_connection_flush(m_connection);
    dbus_pending_call_block(pending.get());
    DBusMessage* reply = dbus_pending_call_steal_reply(pending.get());
    if (reply == nullptr)
        m_logger.log(RedisLogger::ERROR, "Reply Null");
    return reply;
}

int MirelDBusConnector::dBusProcessArgs(DBusMessageIter* it, std::list<DBUS_ARG_T>& out)
{
    return m_codec.processArgs(it, out);
}

bool MirelDBusConnector::dbusProcessDict(DBusMessageIter* it, DBusDict* dict)
{
    return m_codec.processDict(it, dict);
}

bool MirelDBusConnector::dbusCheckErrRetval(std::list<DBUS_ARG_T>::iterator& it)
{
    if (it->type != DBUS_TYPE_INT32) {
        m_logger.log(RedisLogger::ERROR, "DBUS_TYPE_INT32 expected");
        return false;
    }
    int32_t const code = it->value.i;
    ++it;
    if (it->type != DBUS_TYPE_STRING) {
        // KEPT: the text of the first check, for the text after it too.
        m_logger.log(RedisLogger::ERROR, "DBUS_TYPE_INT32 expected");
        return false;
    }
    if (code != 0) {
        m_logger.log(RedisLogger::ERROR, "Error (%d) occured: %s", code, it->value.s);
        return false;
    }
    ++it;
    return true;
}

bool MirelDBusConnector::checkedCall(char const* service, char const* method, std::list<DBUS_ARG_T>& in,
                                     std::list<DBUS_ARG_T>& out, size_t count, char const* countMessage,
                                     std::list<DBUS_ARG_T>::iterator& it)
{
    if (dbusCall(service, method, in, out) != VornStatus::Success)
        return false;
    if (out.size() != count) {
        m_logger.log(RedisLogger::ERROR, countMessage, static_cast<int>(out.size()));
        return false;
    }
    it = out.begin();
    return dbusCheckErrRetval(it);
}

int MirelDBusConnector::releaseTrigger()
{
    std::list<DBUS_ARG_T> in;
    std::list<DBUS_ARG_T> out;
    if (dbusCall(kImager, "vornTrigger", in, out) != VornStatus::Success)
        return VornStatus::DeviceFailure;
    if (out.size() != 1) {
        m_logger.log(RedisLogger::ERROR, "Expected one retval, but got %d", static_cast<int>(out.size()));
        return VornStatus::DeviceFailure;
    }
    if (out.front().type != DBUS_TYPE_INT32) {
        m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_INT32, but got %d", out.front().type);
        return VornStatus::DeviceFailure;
    }
    return out.front().value.i;
}

bool MirelDBusConnector::getDeviceParam(std::string const& name, std::string& value)
{
    std::list<DBUS_ARG_T> in{DBUS_ARG_T::string(name.c_str())};
    std::list<DBUS_ARG_T> out;
    std::list<DBUS_ARG_T>::iterator it;
    if (!checkedCall(kParameters, "getParameter", in, out, 3, "Expected three retval, but got %d", it))
        return false;
    // The parameter's value must be a text; anything else is a malformed reply.
    if (it->type != DBUS_TYPE_STRING) {
        m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_STRING, but got %d", it->type);
        return false;
    }
    value = it->value.s;
    return true;
}

bool MirelDBusConnector::getHWInfo(std::map<std::string, std::string>& info)
{
    std::list<DBUS_ARG_T> in;
    std::list<DBUS_ARG_T> out;
    std::list<DBUS_ARG_T>::iterator it;
    if (!checkedCall(kParameters, "getHWInfo", in, out, 3, "Expected three retvals, but got %d", it))
        return false;
    if (it->type != DBUS_TYPE_DICT_ENTRY) {
        m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_DICT, but got %d", it->type);
        return false;
    }
    std::map<std::string, std::string> read;
    for (auto const& entry : *it->value.dict) {
        if (entry.second.type != DBUS_TYPE_STRING) {
            m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_STRING, but got %d", entry.second.type);
            return false;
        }
        read[entry.first] = entry.second.value.s;
    }
    for (auto const& entry : read)
        info[entry.first] = entry.second;
    return true;
}

bool MirelDBusConnector::setIO(int pin, int state)
{
    std::list<DBUS_ARG_T> in{DBUS_ARG_T::int32(pin), DBUS_ARG_T::int32(state)};
    std::list<DBUS_ARG_T> out;
    std::list<DBUS_ARG_T>::iterator it;
    bool const ok =
        checkedCall(kIOManager, "setPinStatus", in, out, 2, "Expected two retvals, but got %d", it);
    // KEPT: logged at ERROR whatever the outcome; the device's log readers look for it there.
    m_logger.log(RedisLogger::ERROR, "setIO: PIN(%d) state(%d) res: %d", pin, state, ok ? 1 : 0);
    return ok;
}

bool MirelDBusConnector::readIntAfterCheck(char const* method, int pin, char const* countMessage, int& result)
{
    std::list<DBUS_ARG_T> in{DBUS_ARG_T::int32(pin)};
    std::list<DBUS_ARG_T> out;
    std::list<DBUS_ARG_T>::iterator it;
    if (!checkedCall(kIOManager, method, in, out, 3, countMessage, it))
        return false;
    if (it->type != DBUS_TYPE_INT32) {
        m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_INT32, but got %d", it->type);
        return false;
    }
    result = it->value.i;
    return true;
}

bool MirelDBusConnector::getIO(int pin, int& state)
{
    return readIntAfterCheck("getPinStatus", pin, "Expected three retvals, but got %d", state);
}

bool MirelDBusConnector::getIOMode(int pin, int& mode)
{
    if (!readIntAfterCheck("getIOMode", pin, "Expected three retvals, but got %d", mode))
        return false;
    // KEPT: a success logged at ERROR; the device's log readers look for it there.
    m_logger.log(RedisLogger::ERROR, "getIOMode: PIN(%d) mode: %d", pin, mode);
    return true;
}

int MirelDBusConnector::getApplicationList(std::vector<int>& indices, int& active)
{
    std::list<DBUS_ARG_T> in;
    std::list<DBUS_ARG_T> out;
    if (dbusCall(kParameters, "getApplicationList", in, out) != VornStatus::Success)
        return VornStatus::DeviceFailure;
    if (out.size() < 2) {
        m_logger.log(RedisLogger::ERROR, "Expected >=2 retvals, but got %d", static_cast<int>(out.size()));
        return VornStatus::DeviceFailure;
    }
    auto it = out.begin();
    if (!dbusCheckErrRetval(it))
        return VornStatus::DeviceFailure;
    for (; it != out.end(); ++it) {
        if (it->type != DBUS_TYPE_DICT_ENTRY) {
            m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_DICT, but got %d", it->type);
            return VornStatus::DeviceFailure;
        }
        auto const index = it->value.dict->find("Index");
        if (index == it->value.dict->end()) {
            m_logger.log(RedisLogger::ERROR, "Key 'Index' not found in map");
            return VornStatus::DeviceFailure;
        }
        if (!DBusMessageCodec::isIntegerType(index->second.type)) {
            m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_INT32, but got %d", index->second.type);
            return VornStatus::DeviceFailure;
        }
        indices.push_back(index->second.value.i);
    }

    std::string text;
    if (!getDeviceParam("ActiveApplication", text))
        return VornStatus::DeviceFailure;
    int value = 0;
    if (sscanf(text.c_str(), "%d", &value) != 1)
        return VornStatus::DeviceFailure;
    active = value;
    return VornStatus::Success;
}

int MirelDBusConnector::activateApplication(int index)
{
    std::list<DBUS_ARG_T> in{DBUS_ARG_T::int32(index)};
    std::list<DBUS_ARG_T> out;
    if (dbusCall(kParameters, "switchApplication", in, out) != VornStatus::Success)
        return VornStatus::DeviceFailure;
    if (out.size() != 2) {
        m_logger.log(RedisLogger::ERROR, "Expected 2 retvals, but got %d", static_cast<int>(out.size()));
        return VornStatus::DeviceFailure;
    }
    if (out.front().type != DBUS_TYPE_INT32) {
        m_logger.log(RedisLogger::ERROR, "Expected DBUS_TYPE_INT32, but got %d", out.front().type);
        return VornStatus::DeviceFailure;
    }
    return out.front().value.i;
}

int MirelDBusConnector::getStatisticData(std::map<std::string, unsigned int>& data)
{
    std::list<DBUS_ARG_T> in;
    std::list<DBUS_ARG_T> out;
    if (dbusCall(kImager, "getStatistics", in, out) != VornStatus::Success)
        return VornStatus::DeviceFailure;
    if (out.size() != 4) {
        m_logger.log(RedisLogger::ERROR, "Expected 4 retvals, but got %d", static_cast<int>(out.size()));
        return VornStatus::DeviceFailure;
    }
    // The image service answers (triggers, results, positive decodings, false decodings); the
    // trigger count has no key of its own.
    static char const* const keys[] = {"number_of_results", "number_of_positive_decodings",
                                       "number_of_false_decodings"};
    auto it = std::next(out.begin());
    for (char const* key : keys) {
        unsigned int const count = DBusMessageCodec::isIntegerType(it->type) ? it->value.u : 0;
        data[key] = count;
        m_logger.log(RedisLogger::DEBUG, "%s: %d", key, static_cast<int>(count));
        ++it;
    }
    return VornStatus::Success;
}

} // namespace orv
