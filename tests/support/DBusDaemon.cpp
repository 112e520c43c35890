#include "DBusDaemon.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace orv {
namespace test {
namespace {

bool accepts(std::string const& socketPath)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    socketPath.copy(addr.sun_path, sizeof addr.sun_path - 1);
    bool const ok = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

} // namespace

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
    m_address = "unix:path=" + socketPath;

    m_pid = fork();
    if (m_pid < 0)
        throw std::runtime_error("fork failed");
    if (m_pid == 0) {
        std::string const arg = "--config-file=" + config;
        execlp("dbus-daemon", "dbus-daemon", arg.c_str(), "--nofork", "--nopidfile", "--nosyslog",
               static_cast<char*>(nullptr));
        _exit(127);
    }
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!accepts(socketPath)) {
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            throw std::runtime_error("dbus-daemon exited at start (is it installed?)");
        }
        if (std::chrono::steady_clock::now() > deadline) {
            stop();
            throw std::runtime_error("dbus-daemon did not open " + socketPath + " in time");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_env = std::make_unique<ScopedEnv>("DBUS_SYSTEM_BUS_ADDRESS", m_address);
}

DBusDaemon::~DBusDaemon()
{
    stop();
}

void DBusDaemon::stop()
{
    m_env.reset();
    if (m_pid <= 0)
        return;
    kill(m_pid, SIGTERM);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
}

} // namespace test
} // namespace orv
