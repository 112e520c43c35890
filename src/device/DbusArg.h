// One typed value of a device-service call: an argument sent, or one value of a decoded reply.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace orv {

struct DBUS_ARG_T;
using DBusDict = std::map<std::string, DBUS_ARG_T>;

struct DBUS_ARG_T
{
    // The bus's type code as a character: 'b', 'i', 's', 'u', 'y', or 'e' for a decoded dictionary.
    int type = 0;
    union {
        int32_t i;      // 'i'
        uint32_t u;     // 'u', 'b', 'y' and any other integer kept from a dictionary
        char const* s;  // 's': NUL-terminated UTF-8
        DBusDict* dict; // 'e'
    } value = {0};
    // Keeps a decoded text or dictionary alive for as long as any copy of this value exists, so a
    // reply's values outlive the reply message they were read from.
    std::shared_ptr<void const> storage;

    static DBUS_ARG_T int32(int32_t v)
    {
        DBUS_ARG_T arg;
        arg.type = 'i';
        arg.value.i = v;
        return arg;
    }
    // The text is not copied: it must outlive the call it is sent with.
    static DBUS_ARG_T string(char const* text)
    {
        DBUS_ARG_T arg;
        arg.type = 's';
        arg.value.s = text;
        return arg;
    }
};

} // namespace orv
