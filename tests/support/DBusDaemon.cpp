#include "DBusDaemon.h"

#include "Process.h"

#include <fstream>

namespace orv::test {

DBusDaemon::DBusDaemon() : m_dir("kv-bus")
{
    std::string const socketPath = m_dir.file("system_bus_socket");
    std::string const config = m_dir.file("system.conf");
    std::ofstream(config)
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>system</type>\n"
           "  <listen>unix:path="
        << socketPath
        << "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow user=\"*\"/>\n"
           "    <allow own=\"*\"/>\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow send_type=\"method_call\"/>\n"
           "    <allow send_requested_reply=\"false\"/>\n"
           "    <allow receive_requested_reply=\"false\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";

    m_pid = startSocketService(
        {"dbus-daemon", "--config-file=" + config, "--nofork", "--nopidfile", "--nosyslog"}, socketPath);
    m_env = std::make_unique<ScopedEnv>("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + socketPath);
}

DBusDaemon::~DBusDaemon()
{
    m_env.reset();
    stopProcess(m_pid);
}

} // namespace orv::test
