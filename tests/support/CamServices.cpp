#include "CamServices.h"

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include <dbus/dbus.h>

#include "CamDBusServices.h"

namespace orv {
namespace test {
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

// One control call with a fresh private connection, so that nothing is shared with the plug-in.
MessagePtr control(char const* method, int first, ...)
{
    DBusError error;
    dbus_error_init(&error);
    // Opened by address rather than as "the system bus", so that libdbus remembers no bus address
    // that a plug-in loaded later in a forked child would inherit.
    char const* address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    std::unique_ptr<DBusConnection, ConnectionClose> connection(
        dbus_connection_open_private(address != nullptr ? address : "", &error));
    if (connection && !dbus_bus_register(connection.get(), &error))
        connection.reset();
    if (!connection) {
        std::string const text = error.message != nullptr ? error.message : "no bus";
        dbus_error_free(&error);
        throw std::runtime_error("camsim control: " + text);
    }
    dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);
    MessagePtr call(dbus_message_new_method_call("com.orv.imager", "/", "com.orv.imager", method));
    va_list args;
    va_start(args, first);
    dbus_message_append_args_valist(call.get(), first, args);
    va_end(args);
    MessagePtr reply(dbus_connection_send_with_reply_and_block(connection.get(), call.get(), 5000, &error));
    if (!reply) {
        std::string const text = error.message != nullptr ? error.message : "no reply";
        dbus_error_free(&error);
        throw std::runtime_error(std::string("camsim control ") + method + ": " + text);
    }
    return reply;
}

} // namespace

CamServices::CamServices(CamServicesOptions const& options)
{
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    m_pid = fork();
    if (m_pid < 0)
        throw std::runtime_error("fork failed");
    if (m_pid == 0) {
        close(ready[0]);
        signal(SIGTERM, SIG_DFL);
        camsim::CamDBusServices services;
        services.setApplicationCount(options.applications);
        for (std::string const& text : options.faults) {
            std::string method;
            camsim::Fault fault;
            if (!camsim::parseFault(text, method, fault))
                _exit(3);
            services.setFault(method, fault);
        }
        std::string error;
        if (!services.connect(error)) {
            (void)!write(ready[1], error.data(), error.size());
            _exit(2);
        }
        (void)!write(ready[1], "ok", 2);
        close(ready[1]);
        services.run();
        _exit(0);
    }
    close(ready[1]);
    pollfd p{ready[0], POLLIN, 0};
    char buffer[256] = {};
    ssize_t got = 0;
    if (poll(&p, 1, 10000) == 1)
        got = read(ready[0], buffer, sizeof buffer - 1);
    close(ready[0]);
    if (got != 2 || strncmp(buffer, "ok", 2) != 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
        throw std::runtime_error(std::string("camera services did not start: ") + buffer);
    }
}

CamServices::~CamServices()
{
    if (m_pid <= 0)
        return;
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
}

void CamServices::setFault(std::string const& method, std::string const& kind)
{
    char const* m = method.c_str();
    char const* k = kind.c_str();
    control("camsimSetFault", DBUS_TYPE_STRING, &m, DBUS_TYPE_STRING, &k, DBUS_TYPE_INVALID);
}

void CamServices::setApplications(int count)
{
    int32_t c = count;
    control("camsimSetApplications", DBUS_TYPE_INT32, &c, DBUS_TYPE_INVALID);
}

void CamServices::setPin(int pin, int mode, int state)
{
    int32_t p = pin, m = mode, s = state;
    control("camsimSetPin", DBUS_TYPE_INT32, &p, DBUS_TYPE_INT32, &m, DBUS_TYPE_INT32, &s, DBUS_TYPE_INVALID);
}

std::pair<int, int> CamServices::pin(int pin)
{
    int32_t p = pin;
    MessagePtr reply = control("camsimGetPin", DBUS_TYPE_INT32, &p, DBUS_TYPE_INVALID);
    int32_t mode = -1, state = -1;
    dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_INT32, &mode, DBUS_TYPE_INT32, &state,
                          DBUS_TYPE_INVALID);
    return {mode, state};
}

} // namespace test
} // namespace orv
