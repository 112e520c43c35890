#include "ident/IdentEeprom.h"

#include <cstdio>
#include <cstring>

#include <libudev.h>

namespace {

// True when `name` occurs in `path` directly before its end. Searched hit by hit, so that a name
// that also occurs earlier in the path (".../2-0053/.../2-0053") still matches at the end.
bool endsWithName(char const* path, char const* name)
{
    char const* hit = strstr(path, name);
    while (hit != nullptr) {
        if (hit[strlen(name)] == '\0')
            return true;
        hit = strstr(hit + 1, name);
    }
    return false;
}

} // namespace

extern "C" bool sysfsudev_resolve_path(char const* subsystem, char const* driver, char const* name,
                                       char* path, size_t size)
{
    if (subsystem == nullptr || driver == nullptr || path == nullptr || size == 0)
        return false;
    udev* context = udev_new();
    if (context == nullptr)
        return false;
    // Subscribing like a hot-plug reader keeps the at24 devices' uevents flowing; nothing is read.
    udev_monitor* monitor = udev_monitor_new_from_netlink(context, "udev");
    if (monitor != nullptr) {
        udev_monitor_filter_add_match_subsystem_devtype(monitor, subsystem, nullptr);
        udev_monitor_enable_receiving(monitor);
    }

    bool found = false;
    udev_enumerate* enumerate = udev_enumerate_new(context);
    if (enumerate != nullptr) {
        udev_enumerate_add_match_subsystem(enumerate, subsystem);
        udev_enumerate_scan_devices(enumerate);
        udev_list_entry* entry;
        udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate))
        {
            udev_device* device = udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
            if (device == nullptr)
                continue;
            char const* deviceDriver = udev_device_get_driver(device);
            if (deviceDriver != nullptr && strcmp(deviceDriver, driver) == 0) {
                snprintf(path, size, "%s", udev_device_get_syspath(device));
                found = name == nullptr || endsWithName(path, name);
            }
            udev_device_unref(device);
            if (found)
                break;
        }
        udev_enumerate_unref(enumerate);
    }
    if (monitor != nullptr)
        udev_monitor_unref(monitor);
    udev_unref(context);
    return found;
}
