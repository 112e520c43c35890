// Starting and stopping a server process of a test (redis-server, dbus-daemon) that is ready once
// its Unix socket accepts connections.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace orv {
namespace test {

// Runs argv (argv[0] found on PATH) and waits up to 10 s until socketPath accepts a connection.
// Throws std::runtime_error when the program exits first or the socket stays closed.
pid_t startSocketService(std::vector<std::string> const& argv, std::string const& socketPath);

// SIGTERM, then waits for the process; pid becomes -1. Does nothing for a pid of -1.
void stopService(pid_t& pid);

} // namespace test
} // namespace orv
