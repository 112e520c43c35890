// The simulated camera's device services in a process of their own on the test bus, started with
// the given faults ("method=kind[:value]") and stopped on destruction; plus a client for their
// control methods.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace orv {
namespace test {

struct CamServicesOptions
{
    std::vector<std::string> faults;
    int applications = 3;
};

class CamServices
{
public:
    // Needs DBUS_SYSTEM_BUS_ADDRESS set (DBusDaemon); throws when the services cannot start.
    explicit CamServices(CamServicesOptions const& options = {});
    ~CamServices();
    CamServices(CamServices const&) = delete;
    CamServices& operator=(CamServices const&) = delete;

    // Control calls on the running services, over a private connection of the test's own.
    void setFault(std::string const& method, std::string const& kind);
    void setApplications(int count);
    void setPin(int pin, int mode, int state);
    std::pair<int, int> pin(int pin); // mode and state

private:
    pid_t m_pid = -1;
};

} // namespace test
} // namespace orv
