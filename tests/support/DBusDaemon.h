// A private dbus-daemon of type system in a temporary directory that allows everything, with
// DBUS_SYSTEM_BUS_ADDRESS pointing at it for as long as the object lives.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>

#include "ScopedEnv.h"
#include "TempDir.h"

namespace orv::test {

class DBusDaemon
{
public:
    // Starts the daemon and waits (with a deadline) for its socket; throws otherwise.
    DBusDaemon();
    ~DBusDaemon();

private:
    TempDir m_dir; // also makes the daemon non-copyable
    pid_t m_pid = -1;
    std::unique_ptr<ScopedEnv> m_env;
};

} // namespace orv::test
