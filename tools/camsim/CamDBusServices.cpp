#include "CamDBusServices.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include <dbus/dbus.h>

namespace camsim {

namespace {

constexpr char const* kDefaultSystemBus = "unix:path=/var/run/dbus/system_bus_socket";
constexpr char const* kImager = "com.orv.imager";
constexpr char const* kParameters = "com.orv.quillon";
constexpr char const* kIOManager = "com.orv.iom";
constexpr char const* kFailed = "com.orv.Error.Failed";
constexpr int kOutputMode = 14;
constexpr int kInputMode = 13;

void appendInt(DBusMessageIter* it, int32_t value)
{
    dbus_message_iter_append_basic(it, DBUS_TYPE_INT32, &value);
}

void appendUInt(DBusMessageIter* it, uint32_t value)
{
    dbus_message_iter_append_basic(it, DBUS_TYPE_UINT32, &value);
}

void appendText(DBusMessageIter* it, char const* text)
{
    dbus_message_iter_append_basic(it, DBUS_TYPE_STRING, &text);
}

// The services' common head: result code and text, or the fault's version of it.
void appendResult(DBusMessageIter* it, int code, char const* text, Fault const& fault)
{
    if (fault.kind == Fault::ResultCode) {
        code = fault.value;
        text = "simulated failure";
    }
    if (fault.kind == Fault::TextCode)
        appendText(it, std::to_string(code).c_str());
    else
        appendInt(it, code);
    if (fault.kind == Fault::WrongType)
        appendInt(it, 0);
    else
        appendText(it, text);
}

// What every reply may get at its end.
void appendTail(DBusMessageIter* it, Fault const& fault)
{
    if (fault.kind == Fault::ExtraValue)
        appendInt(it, 0);
    if (fault.kind == Fault::DoubleValue) {
        double value = 1.5;
        dbus_message_iter_append_basic(it, DBUS_TYPE_DOUBLE, &value);
    }
}

// One dictionary entry: text key and a variant, or the fault's malformed version of it.
void appendEntry(DBusMessageIter* dict, char const* key, int type, void const* value, Fault const& fault)
{
    DBusMessageIter entry;
    dbus_message_iter_open_container(dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    if (fault.kind == Fault::BadDictionary)
        appendInt(&entry, 1);
    else
        appendText(&entry, key);
    if (fault.kind == Fault::NoVariant) {
        dbus_message_iter_append_basic(&entry, type, value);
    } else {
        char const signature[2] = {static_cast<char>(type), '\0'};
        DBusMessageIter variant;
        dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature, &variant);
        dbus_message_iter_append_basic(&variant, type, value);
        dbus_message_iter_close_container(&entry, &variant);
    }
    dbus_message_iter_close_container(dict, &entry);
}

// The signature of a dictionary under the fault.
char const* dictSignature(Fault const& fault, char valueType)
{
    if (fault.kind == Fault::BadDictionary)
        return "{iv}";
    if (fault.kind == Fault::NoVariant)
        return valueType == 'i' ? "{si}" : "{ss}";
    return "{sv}";
}

DBusHandlerResult filter(DBusConnection*, DBusMessage* message, void* self)
{
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL)
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    return static_cast<CamDBusServices*>(self)->handle(message) ? DBUS_HANDLER_RESULT_HANDLED
                                                                : DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
}

} // namespace

CamDBusServices::CamDBusServices()
{
    m_parameters = {{"ArticleNumber", "KV2200AA"},
                    {"Name", "kestrel-sim"},
                    {"Description", "simulated time-of-flight camera"},
                    {"IPAddressConfig", "0"},
                    {"ActiveApplication", "1"}};
    m_hwInfo = {
        {"MACAddress", "00:02:01:AB:CD:EF"}, {"SerialNumber", "000123456"}, {"HardwareRevision", "AC"}};
    setApplicationCount(3);
    // Both I/O boards' pins: two-port board on 0 and 1, three-port board on 3, 5 and 4; pin 4 is
    // wired as an input.
    for (int pin : {0, 1, 3, 5})
        m_pins[pin] = Pin{kOutputMode, 0};
    m_pins[4] = Pin{kInputMode, 0};
}

CamDBusServices::~CamDBusServices()
{
    stop();
    if (m_connection != nullptr) {
        dbus_connection_close(m_connection);
        dbus_connection_unref(m_connection);
    }
}

void CamDBusServices::setTriggerHandler(std::function<Decoding()> handler)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_onTrigger = std::move(handler);
}

void CamDBusServices::setFault(std::string const& method, Fault fault)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (fault.kind == Fault::None)
        m_faults.erase(method);
    else
        m_faults[method] = fault;
}

void CamDBusServices::setApplicationCount(int count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_applications.clear();
    for (int i = 1; i <= count; ++i)
        m_applications.push_back(i);
}

void CamDBusServices::setParameter(std::string const& name, std::string const& value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_parameters[name] = value;
}

void CamDBusServices::setPin(int pin, Pin value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pins[pin] = value;
}

Pin CamDBusServices::pin(int pin) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto const it = m_pins.find(pin);
    return it != m_pins.end() ? it->second : Pin{-1, -1};
}

bool CamDBusServices::connect(std::string& error)
{
    dbus_threads_init_default();
    DBusError err;
    dbus_error_init(&err);
    // Opened by address and registered by hand: libdbus's own way (dbus_bus_get_private) takes its
    // global bus lock and the connection's in the opposite order of a later close.
    char const* address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    m_connection = dbus_connection_open_private(address != nullptr ? address : kDefaultSystemBus, &err);
    if (m_connection != nullptr && !dbus_bus_register(m_connection, &err)) {
        dbus_connection_close(m_connection);
        dbus_connection_unref(m_connection);
        m_connection = nullptr;
    }
    if (m_connection == nullptr) {
        error = err.message != nullptr ? err.message : "no system bus";
        dbus_error_free(&err);
        return false;
    }
    dbus_connection_set_exit_on_disconnect(m_connection, FALSE);
    for (char const* name : {kImager, kParameters, kIOManager}) {
        // A previous simulator that just ended may still own the name for a moment.
        int result = -1;
        for (int attempt = 0; attempt < 500; ++attempt) {
            result = dbus_bus_request_name(m_connection, name, DBUS_NAME_FLAG_DO_NOT_QUEUE, &err);
            if (result != DBUS_REQUEST_NAME_REPLY_EXISTS)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (result != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) {
            error = std::string("cannot own ") + name +
                    (dbus_error_is_set(&err) ? std::string(": ") + err.message : "");
            dbus_error_free(&err);
            return false;
        }
    }
    dbus_connection_add_filter(m_connection, &filter, this, nullptr);
    return true;
}

void CamDBusServices::run()
{
    while (!m_stop && dbus_connection_read_write_dispatch(m_connection, 100)) {
    }
}

void CamDBusServices::start()
{
    m_thread = std::thread([this] { run(); });
}

void CamDBusServices::stop()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

Fault CamDBusServices::faultFor(std::string const& method) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_faults.find(method);
    if (it == m_faults.end())
        it = m_faults.find("*");
    return it != m_faults.end() ? it->second : Fault();
}

bool CamDBusServices::handle(DBusMessage* call)
{
    char const* path = dbus_message_get_path(call);
    char const* interface = dbus_message_get_interface(call);
    char const* member = dbus_message_get_member(call);
    if (path == nullptr || strcmp(path, "/") != 0 || interface == nullptr || member == nullptr)
        return false;
    std::string const service = interface;
    std::string const method = member;
    if (service != kImager && service != kParameters && service != kIOManager)
        return false;

    if (method.rfind("camsim", 0) == 0) {
        reply(call, control(call, method));
        return true;
    }
    Fault const fault = faultFor(method);
    if (fault.kind == Fault::NoReply)
        return true;
    if (fault.kind == Fault::Slow)
        std::this_thread::sleep_for(std::chrono::milliseconds(fault.value));
    if (fault.kind == Fault::ErrorReply) {
        reply(call, dbus_message_new_error(call, kFailed, "simulated failure"));
        return true;
    }

    DBusMessage* answer = nullptr;
    if (service == kImager && method == "vornTrigger")
        answer = trigger(call, fault);
    else if (service == kImager && method == "getStatistics")
        answer = getStatistics(call, fault);
    else if (service == kParameters && method == "getParameter")
        answer = getParameter(call, fault);
    else if (service == kParameters && method == "getHWInfo")
        answer = getHWInfo(call, fault);
    else if (service == kParameters && method == "getApplicationList")
        answer = getApplicationList(call, fault);
    else if (service == kParameters && method == "switchApplication")
        answer = switchApplication(call, fault);
    else if (service == kIOManager &&
             (method == "setPinStatus" || method == "getPinStatus" || method == "getIOMode"))
        answer = pinCall(call, method, fault);
    else
        answer = dbus_message_new_error(call, DBUS_ERROR_UNKNOWN_METHOD, method.c_str());
    reply(call, answer);
    return true;
}

void CamDBusServices::reply(DBusMessage*, DBusMessage* answer)
{
    if (answer == nullptr)
        return;
    dbus_connection_send(m_connection, answer, nullptr);
    dbus_connection_flush(m_connection);
    dbus_message_unref(answer);
}

DBusMessage* CamDBusServices::trigger(DBusMessage* call, Fault const& fault)
{
    std::function<Decoding()> onTrigger;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_triggers;
        onTrigger = m_onTrigger;
    }
    Decoding const decoding = onTrigger ? onTrigger() : Decoding::Positive;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (decoding != Decoding::None)
            ++m_results;
        if (decoding == Decoding::Positive)
            ++m_positive;
        if (decoding == Decoding::Negative)
            ++m_negative;
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    if (fault.kind == Fault::WrongType)
        appendText(&it, "accepted");
    else
        appendInt(&it, fault.kind == Fault::ResultCode ? fault.value : 0);
    appendTail(&it, fault);
    return answer;
}

DBusMessage* CamDBusServices::getParameter(DBusMessage* call, Fault const& fault)
{
    char const* name = nullptr;
    if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID))
        return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "getParameter takes one text");
    std::string value;
    bool known;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto const it = m_parameters.find(name);
        known = it != m_parameters.end();
        if (known)
            value = it->second;
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    appendResult(&it, known ? 0 : -2, known ? "" : "unknown parameter", fault);
    if (fault.kind == Fault::ValueType)
        appendInt(&it, 0);
    else
        appendText(&it, value.c_str());
    appendTail(&it, fault);
    return answer;
}

DBusMessage* CamDBusServices::getHWInfo(DBusMessage* call, Fault const& fault)
{
    std::map<std::string, std::string> info;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        info = m_hwInfo;
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    appendResult(&it, 0, "", fault);
    DBusMessageIter dict;
    dbus_message_iter_open_container(&it, DBUS_TYPE_ARRAY, dictSignature(fault, 's'), &dict);
    for (auto const& entry : info) {
        char const* value = entry.second.c_str();
        int32_t const number = 0;
        if (fault.kind == Fault::ValueType)
            appendEntry(&dict, entry.first.c_str(), DBUS_TYPE_INT32, &number, fault);
        else
            appendEntry(&dict, entry.first.c_str(), DBUS_TYPE_STRING, &value, fault);
    }
    dbus_message_iter_close_container(&it, &dict);
    appendTail(&it, fault);
    return answer;
}

DBusMessage* CamDBusServices::getApplicationList(DBusMessage* call, Fault const& fault)
{
    std::vector<int> applications;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        applications = m_applications;
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    appendResult(&it, 0, "", fault);
    std::string const signature = std::string("a") + dictSignature(fault, 'i');
    DBusMessageIter list;
    dbus_message_iter_open_container(&it, DBUS_TYPE_ARRAY, signature.c_str(), &list);
    for (int index : applications) {
        DBusMessageIter dict;
        dbus_message_iter_open_container(&list, DBUS_TYPE_ARRAY, dictSignature(fault, 'i'), &dict);
        int32_t const value = index;
        // A service of another make may send any integer type; this one sets bits above the 32 too.
        int64_t const wide = value + (int64_t(1) << 32);
        if (fault.kind == Fault::WideIndex)
            appendEntry(&dict, "Index", DBUS_TYPE_INT64, &wide, fault);
        else if (fault.kind != Fault::MissingIndex)
            appendEntry(&dict, "Index", DBUS_TYPE_INT32, &value, fault);
        int32_t const models = 1 + index % 3;
        appendEntry(&dict, "ModelCount", DBUS_TYPE_INT32, &models, fault);
        dbus_message_iter_close_container(&list, &dict);
    }
    dbus_message_iter_close_container(&it, &list);
    appendTail(&it, fault);
    return answer;
}

DBusMessage* CamDBusServices::switchApplication(DBusMessage* call, Fault const& fault)
{
    int32_t index = 0;
    if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &index, DBUS_TYPE_INVALID))
        return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "switchApplication takes one int32");
    bool known;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        known = std::find(m_applications.begin(), m_applications.end(), index) != m_applications.end();
        if (known && fault.kind == Fault::None)
            m_parameters["ActiveApplication"] = std::to_string(index);
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    // An unknown index is rejected with the protocol's own code for a rejected argument.
    appendResult(&it, known ? 0 : 100000004, known ? "" : "no such application", fault);
    appendTail(&it, fault);
    return answer;
}

DBusMessage* CamDBusServices::pinCall(DBusMessage* call, std::string const& method, Fault const& fault)
{
    int32_t pin = 0;
    int32_t state = 0;
    bool const isSet = method == "setPinStatus";
    bool const parsed = isSet
                            ? dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &pin, DBUS_TYPE_INT32,
                                                    &state, DBUS_TYPE_INVALID)
                            : dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &pin, DBUS_TYPE_INVALID);
    if (!parsed)
        return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "wrong pin arguments");

    int code = 0;
    char const* text = "";
    int32_t value = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto const found = m_pins.find(pin);
        if (found == m_pins.end()) {
            code = -1;
            text = "no such pin";
        } else if (isSet && found->second.mode != kOutputMode) {
            code = -3;
            text = "pin is not an output";
        } else if (isSet) {
            if (fault.kind == Fault::None)
                found->second.state = state != 0 ? 1 : 0;
        } else {
            value = method == "getIOMode" ? found->second.mode : found->second.state;
        }
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    appendResult(&it, code, text, fault);
    if (!isSet && fault.kind == Fault::ValueType)
        appendText(&it, std::to_string(value).c_str());
    else if (!isSet)
        appendInt(&it, value);
    appendTail(&it, fault);
    return answer;
}

DBusMessage* CamDBusServices::getStatistics(DBusMessage* call, Fault const& fault)
{
    uint32_t counters[4];
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        counters[0] = m_triggers;
        counters[1] = m_results;
        counters[2] = m_positive;
        counters[3] = m_negative;
    }
    DBusMessage* answer = dbus_message_new_method_return(call);
    DBusMessageIter it;
    dbus_message_iter_init_append(answer, &it);
    if (fault.kind == Fault::ResultCode) {
        // A service that follows the common result convention here answers five values.
        appendInt(&it, fault.value);
        appendText(&it, "simulated failure");
    }
    for (uint32_t counter : counters)
        appendUInt(&it, counter);
    appendTail(&it, fault);
    return answer;
}

// Test control: camsimSetFault(s method, s kind[:value]), camsimSetApplications(i count),
// camsimSetPin(i pin, i mode, i state), camsimGetPin(i pin) -> (i mode, i state),
// camsimSetCounters(u triggers, u results, u positive, u negative).
DBusMessage* CamDBusServices::control(DBusMessage* call, std::string const& method)
{
    if (method == "camsimSetFault") {
        char const* name = nullptr;
        char const* kind = nullptr;
        if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &kind,
                                   DBUS_TYPE_INVALID))
            return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS,
                                          "camsimSetFault(method, kind[:value])");
        // A wrong fault is refused with the reason; the services go on as they were.
        std::string parsedMethod;
        Fault fault;
        std::string const wrong = FaultCatalog::parse(std::string(name) + "=" + kind, parsedMethod, fault);
        if (!wrong.empty())
            return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, wrong.c_str());
        setFault(parsedMethod, fault);
        return dbus_message_new_method_return(call);
    }
    if (method == "camsimSetApplications") {
        int32_t count = 0;
        if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &count, DBUS_TYPE_INVALID))
            return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "camsimSetApplications(count)");
        setApplicationCount(count);
        return dbus_message_new_method_return(call);
    }
    if (method == "camsimSetCounters") {
        uint32_t counters[4] = {};
        if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_UINT32, &counters[0], DBUS_TYPE_UINT32,
                                   &counters[1], DBUS_TYPE_UINT32, &counters[2], DBUS_TYPE_UINT32,
                                   &counters[3], DBUS_TYPE_INVALID))
            return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS,
                                          "camsimSetCounters(triggers, results, positive, negative)");
        std::lock_guard<std::mutex> lock(m_mutex);
        m_triggers = counters[0];
        m_results = counters[1];
        m_positive = counters[2];
        m_negative = counters[3];
        return dbus_message_new_method_return(call);
    }
    if (method == "camsimSetPin") {
        int32_t pinNumber = 0, mode = 0, state = 0;
        if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &pinNumber, DBUS_TYPE_INT32, &mode,
                                   DBUS_TYPE_INT32, &state, DBUS_TYPE_INVALID))
            return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "camsimSetPin(pin, mode, state)");
        setPin(pinNumber, Pin{mode, state});
        return dbus_message_new_method_return(call);
    }
    if (method == "camsimGetPin") {
        int32_t pinNumber = 0;
        if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &pinNumber, DBUS_TYPE_INVALID))
            return dbus_message_new_error(call, DBUS_ERROR_INVALID_ARGS, "camsimGetPin(pin)");
        Pin const value = pin(pinNumber);
        DBusMessage* answer = dbus_message_new_method_return(call);
        dbus_message_append_args(answer, DBUS_TYPE_INT32, &value.mode, DBUS_TYPE_INT32, &value.state,
                                 DBUS_TYPE_INVALID);
        return answer;
    }
    return dbus_message_new_error(call, DBUS_ERROR_UNKNOWN_METHOD, method.c_str());
}

} // namespace camsim
