#include "CameraSim.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

#include <dbus/dbus.h>

#include "Process.h"

namespace orv::test {
namespace {

struct ConnectionClose
{
    void operator()(DBusConnection* c) const
    {
        dbus_connection_close(c);
        dbus_connection_unref(c);
    }
};
struct MessageUnref
{
    void operator()(DBusMessage* m) const { dbus_message_unref(m); }
};
using MessagePtr = std::unique_ptr<DBusMessage, MessageUnref>;

// One control call on a fresh private connection, opened by address rather than as "the system
// bus", so that libdbus remembers nothing that a plug-in loaded later in a forked child inherits.
MessagePtr control(char const* method, int first, ...)
{
    DBusError error;
    dbus_error_init(&error);
    char const* address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    std::unique_ptr<DBusConnection, ConnectionClose> connection(
        dbus_connection_open_private(address != nullptr ? address : "", &error));
    if (connection && !dbus_bus_register(connection.get(), &error))
        connection.reset();
    MessagePtr reply;
    if (connection) {
        dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);
        MessagePtr call(dbus_message_new_method_call("com.orv.imager", "/", "com.orv.imager", method));
        va_list args;
        va_start(args, first);
        dbus_message_append_args_valist(call.get(), first, args);
        va_end(args);
        reply.reset(dbus_connection_send_with_reply_and_block(connection.get(), call.get(), 5000, &error));
    }
    if (!reply) {
        std::string const text = error.message != nullptr ? error.message : "no bus";
        dbus_error_free(&error);
        throw std::runtime_error(std::string("camsim control ") + method + ": " + text);
    }
    return reply;
}

} // namespace

CameraSim::CameraSim(CameraSimOptions const& options)
{
    char rate[32];
    snprintf(rate, sizeof rate, "%g", options.rate);
    std::vector<std::string> args = {"--rate", rate,
                                     "--size", options.size,
                                     "--ring", std::to_string(options.ring),
                                     "--apps", std::to_string(options.applications)};
    for (std::string const& fault : options.faults)
        args.insert(args.end(), {"--fault", fault});
    if (!options.rois.empty())
        args.insert(args.end(), {"--rois", options.rois});
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    int const errors =
        open(m_run.file("camsim.stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    m_pid = spawn(programCommand(KV_CAMSIM_PATH, args), fds[1], errors);
    close(fds[1]);
    close(errors);
    m_out = fds[0];
    if (readLine(20000) != "ready") {
        stop();
        throw std::runtime_error("camsim did not get ready");
    }
}

std::string CameraSim::readLine(int timeoutMs)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        size_t const end = m_pending.find('\n');
        if (end != std::string::npos) {
            std::string line = m_pending.substr(0, end);
            m_pending.erase(0, end + 1);
            return line;
        }
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd p{m_out, POLLIN, 0};
        int const ready = left.count() > 0 ? poll(&p, 1, static_cast<int>(left.count())) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        char buffer[256];
        ssize_t const n = ready > 0 ? read(m_out, buffer, sizeof buffer) : 0;
        if (n <= 0)
            return "";
        m_pending.append(buffer, static_cast<size_t>(n));
    }
}

std::string CameraSim::trigger()
{
    if (m_pid <= 0 || kill(m_pid, SIGUSR1) != 0)
        throw std::runtime_error("camsim is not running");
    std::string const line = readLine(10000);
    std::string const prefix = "published ";
    if (line.compare(0, prefix.size(), prefix) != 0 || line == prefix + "0")
        throw std::runtime_error("camsim published nothing: '" + line + "'");
    return line.substr(prefix.size());
}

int CameraSim::stop()
{
    if (m_pid > 0) {
        m_exitCode = stopProcess(m_pid);
        expectNoSanitizerReport(errors(), "camsim");
    }
    if (m_out >= 0) {
        close(m_out);
        m_out = -1;
    }
    return m_exitCode;
}

std::vector<std::string> CameraSim::frameFiles() const
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(m_frames.path().c_str())) {
        while (dirent* entry = readdir(dir))
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
                names.push_back(entry->d_name);
        closedir(dir);
    }
    return names;
}

std::string CameraSim::errors() const
{
    std::ifstream in(m_run.file("camsim.stderr"));
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void CameraSim::setFault(std::string const& method, std::string const& kind)
{
    char const* m = method.c_str();
    char const* k = kind.c_str();
    control("camsimSetFault", DBUS_TYPE_STRING, &m, DBUS_TYPE_STRING, &k, DBUS_TYPE_INVALID);
}

void CameraSim::setApplications(int count)
{
    int32_t c = count;
    control("camsimSetApplications", DBUS_TYPE_INT32, &c, DBUS_TYPE_INVALID);
}

void CameraSim::setPin(int pin, int mode, int state)
{
    int32_t p = pin, m = mode, s = state;
    control("camsimSetPin", DBUS_TYPE_INT32, &p, DBUS_TYPE_INT32, &m, DBUS_TYPE_INT32, &s, DBUS_TYPE_INVALID);
}

std::pair<int, int> CameraSim::pin(int pin)
{
    int32_t p = pin;
    MessagePtr reply = control("camsimGetPin", DBUS_TYPE_INT32, &p, DBUS_TYPE_INVALID);
    int32_t mode = -1, state = -1;
    dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_INT32, &mode, DBUS_TYPE_INT32, &state,
                          DBUS_TYPE_INVALID);
    return {mode, state};
}

void CameraSim::setCounters(uint32_t triggers, uint32_t results, uint32_t positive, uint32_t negative)
{
    control("camsimSetCounters", DBUS_TYPE_UINT32, &triggers, DBUS_TYPE_UINT32, &results, DBUS_TYPE_UINT32,
            &positive, DBUS_TYPE_UINT32, &negative, DBUS_TYPE_INVALID);
}

} // namespace orv::test
