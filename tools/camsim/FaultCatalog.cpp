#include "FaultCatalog.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace camsim {

namespace {

std::string methodNames()
{
    std::string names;
    for (FaultCatalog::Entry const& method : FaultCatalog::methods())
        names += (names.empty() ? "" : ", ") + std::string(method.name);
    return names;
}

std::string kindNames()
{
    std::string names;
    for (FaultCatalog::Kind const& kind : FaultCatalog::kinds())
        names += (names.empty() ? "" : ", ") + FaultCatalog::spelling(kind);
    return names;
}

bool readNumber(std::string const& text, long long low, long long high, int& value)
{
    char* end = nullptr;
    errno = 0;
    long long const number = strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || number < low || number > high)
        return false;
    value = static_cast<int>(number);
    return true;
}

} // namespace

std::vector<FaultCatalog::Entry> const& FaultCatalog::methods()
{
    static std::vector<Entry> const all = {
        {"*", "every method below that has no fault of its own"},
        {"vornTrigger", "com.orv.imager: trigger one acquisition (publishes a result)"},
        {"getStatistics", "com.orv.imager: the trigger, result and decoding counters"},
        {"getParameter", "com.orv.quillon: one device parameter by name"},
        {"getHWInfo", "com.orv.quillon: MAC address, serial number, hardware revision"},
        {"getApplicationList", "com.orv.quillon: the applications with their indices"},
        {"switchApplication", "com.orv.quillon: make another application the active one"},
        {"setPinStatus", "com.orv.iom: set an output pin"},
        {"getPinStatus", "com.orv.iom: read a pin's state"},
        {"getIOMode", "com.orv.iom: read a pin's mode (14 output, 13 input)"},
    };
    return all;
}

std::vector<FaultCatalog::Kind> const& FaultCatalog::kinds()
{
    static std::vector<Kind> const all = {
        {"none", Fault::None, nullptr, 0, 0, "no fault: clears the one set before"},
        {"error", Fault::ErrorReply, nullptr, 0, 0, "a D-Bus error reply com.orv.Error.Failed"},
        {"code", Fault::ResultCode, "N", INT_MIN, INT_MAX,
         "result code N with the text \"simulated failure\" (trigger: N alone)"},
        {"extra", Fault::ExtraValue, nullptr, 0, 0, "one int32 more than the method answers"},
        {"type", Fault::WrongType, nullptr, 0, 0,
         "an int32 for the text after the result code (trigger: a text for its int32)"},
        {"double", Fault::DoubleValue, nullptr, 0, 0, "a double appended, a type the plug-in does not take"},
        {"noreply", Fault::NoReply, nullptr, 0, 0,
         "never answered: the caller waits out the bus time-out (25 s)"},
        {"slow", Fault::Slow, "MS", 0, 60000,
         "answered after MS milliseconds (the services answer nothing else meanwhile)"},
        {"baddict", Fault::BadDictionary, nullptr, 0, 0, "dictionaries with int32 keys"},
        {"novariant", Fault::NoVariant, nullptr, 0, 0,
         "dictionary values as plain values instead of variants"},
        {"noindex", Fault::MissingIndex, nullptr, 0, 0, "applications without \"Index\""},
        {"wideindex", Fault::WideIndex, nullptr, 0, 0,
         "\"Index\" as a 64-bit integer with bits above the low 32"},
        {"valuetype", Fault::ValueType, nullptr, 0, 0,
         "the value after the result of the wrong type: an int32 for a text, and back"},
        {"textcode", Fault::TextCode, nullptr, 0, 0, "the result code sent as a text"},
    };
    return all;
}

std::string FaultCatalog::spelling(Kind const& kind)
{
    return kind.value != nullptr ? std::string(kind.name) + ":" + kind.value : kind.name;
}

std::string FaultCatalog::parse(std::string const& text, std::string& method, Fault& fault)
{
    auto const equals = text.find('=');
    if (equals == std::string::npos)
        return "no \"=\" between method and kind: give METHOD=KIND[:VALUE], e.g. vornTrigger=code:5";
    std::string const name = text.substr(0, equals);
    bool knownMethod = false;
    for (Entry const& entry : methods())
        knownMethod = knownMethod || name == entry.name;
    if (!knownMethod)
        return "unknown method \"" + name + "\"; methods: " + methodNames();

    std::string kindName = text.substr(equals + 1);
    std::string value;
    auto const colon = kindName.find(':');
    bool const hasValue = colon != std::string::npos;
    if (hasValue) {
        value = kindName.substr(colon + 1);
        kindName.resize(colon);
    }
    for (Kind const& kind : kinds()) {
        if (kindName != kind.name)
            continue;
        Fault parsed;
        parsed.kind = kind.kind;
        if (kind.value == nullptr && hasValue)
            return "kind \"" + kindName + "\" takes no value";
        if (kind.value != nullptr && !hasValue)
            return "kind \"" + kindName + "\" needs a value: " + kindName + ":" + kind.value;
        if (kind.value != nullptr && !readNumber(value, kind.low, kind.high, parsed.value))
            return std::string(kind.value) + " of \"" + kindName + "\" must be a number from " +
                   std::to_string(kind.low) + " to " + std::to_string(kind.high) + ", not \"" + value + "\"";
        method = name;
        fault = parsed;
        return "";
    }
    return "unknown kind \"" + kindName + "\"; kinds: " + kindNames();
}

} // namespace camsim
