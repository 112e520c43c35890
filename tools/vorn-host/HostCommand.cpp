#include "HostCommand.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>

#include "core/CommandId.h"
#include "core/Paths.h"
#include "core/VornStatus.h"

namespace vornhost {

Reply::~Reply()
{
    if (m_block != nullptr) {
        free(m_block->data);
        free(m_block);
    }
}

int32_t Reply::status() const
{
    if (payload() == nullptr)
        return orv::VornStatus::GenericFailure;
    int32_t status;
    memcpy(&status, payload(), sizeof status);
    return status;
}

bool socketAccepts(std::string const& path, std::string& why)
{
    int const fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    bool const reachable = fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    why = reachable ? "" : strerror(errno);
    if (fd >= 0)
        close(fd);
    return reachable;
}

namespace {

// The plug-in's load ends the host (an exception out of its static initialisation) when its Redis
// cache does not answer; said plainly instead, before loading.
void requireCache()
{
    std::string const socketPath = orv::Paths::redisCacheSocket();
    std::string why;
    if (!socketAccepts(socketPath, why))
        throw std::runtime_error("the plug-in needs its Redis cache at " + socketPath + " (" + why +
                                 "): start redis-server there, or point ORV_REDIS_CACHE_SOCKET at one");
}

} // namespace

Plugin::Plugin(std::string const& path) : m_path(path)
{
    requireCache();
    // Loading runs the plug-in's static initialisation: it connects to Redis and the bus here.
    m_library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr)
        throw std::runtime_error(std::string("cannot load the plug-in: ") + dlerror());
    auto init = reinterpret_cast<void* (*)()>(dlsym(m_library, "VORN_init"));
    m_handleCall = reinterpret_cast<DataBlock* (*)(void*, DataBlock*)>(dlsym(m_library, "VORN_handle_call"));
    if (init == nullptr || m_handleCall == nullptr)
        throw std::runtime_error(path + " does not export VORN_init and VORN_handle_call");
    m_handle = init();
}

Plugin::~Plugin()
{
    if (m_library != nullptr)
        dlclose(m_library);
}

namespace {

struct Waiting
{
    int32_t id;
    char const* name;
    bool overBus; // answered by a device service, whose silence the bus waits out
};
constexpr Waiting kWaiting[] = {
    {orv::CommandId::QueryResultData, "query", false},
    {orv::CommandId::AcquireResultId, "acquire", false},
    {orv::CommandId::FreeResultId, "free", false},
    {orv::CommandId::AsyncTrigger, "trigger", true},
    {orv::CommandId::SyncTrigger, "the synchronous trigger", true},
    {orv::CommandId::SetIO, "set-io", true},
    {orv::CommandId::GetIO, "get-io", true},
    {orv::CommandId::GetApplicationList, "apps", true},
    {orv::CommandId::SetApplication, "set-app", true},
    {orv::CommandId::QueryDeviceInfo, "device-info", true},
    {orv::CommandId::QueryStatisticInfo, "stats", true},
    {orv::CommandId::FormatResults, "format", false},
    {orv::CommandId::ValidateFormat, "validate", false},
};

std::string waitingNotice(int id)
{
    for (Waiting const& request : kWaiting) {
        if (request.id == id && request.overBus)
            return std::string("vorn-host: waiting for the camera's answer to ") + request.name +
                   " (the bus gives up after 25 s)...";
        if (request.id == id)
            return std::string("vorn-host: waiting for the plug-in's answer to ") + request.name + "...";
    }
    return "vorn-host: waiting for the plug-in's answer to request " + std::to_string(id) + "...";
}

// Acquire itself waits up to a second for the result's frame: only a wait beyond that is news.
std::chrono::milliseconds patienceFor(int id)
{
    return std::chrono::milliseconds(id == orv::CommandId::AcquireResultId ? 2000 : 1000);
}

} // namespace

Reply Plugin::call(int id, void const* payload)
{
    DataBlock request;
    memset(&request, 0, sizeof request);
    request.command = id;
    request.data = static_cast<unsigned char*>(const_cast<void*>(payload));
    m_watch.open(waitingNotice(id), patienceFor(id));
    DataBlock* const reply = m_handleCall(m_handle, &request);
    m_watch.close();
    return Reply(reply);
}

void Output::field(QString const& name, QJsonValue const& value)
{
    if (!m_fields.contains(name))
        m_order.append(name);
    m_fields.insert(name, value);
}

void Output::reply(Reply const& reply)
{
    if (reply.empty()) {
        field("reply", "none");
        return;
    }
    field("replyCode", reply.replyCode());
    field("status", QString::fromStdString(statusName(reply.status())));
    field("statusCode", reply.status());
}

void Output::note(QString const& line)
{
    m_notes.append(line);
}

namespace {

QString textOf(QJsonValue const& value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Double: {
        double d = value.toDouble();
        if (d == static_cast<double>(static_cast<long long>(d)))
            return QString::number(static_cast<long long>(d));
        return QString::number(d, 'g', 10);
    }
    case QJsonValue::Bool:
        return value.toBool() ? "true" : "false";
    case QJsonValue::Array:
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    case QJsonValue::Object:
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    default:
        return "null";
    }
}

} // namespace

void Output::print(bool compact) const
{
    if (m_json) {
        auto format = compact ? QJsonDocument::Compact : QJsonDocument::Indented;
        QByteArray text = QJsonDocument(m_fields).toJson(format);
        fputs(text.trimmed().constData(), stdout);
        fputc('\n', stdout);
        return;
    }
    int width = 0;
    for (auto const& name : m_order)
        width = std::max(width, static_cast<int>(name.size()));
    for (auto const& name : m_order)
        fprintf(stdout, "%-*s  %s\n", width + 1, (name + ":").toUtf8().constData(),
                textOf(m_fields.value(name)).toUtf8().constData());
    for (auto const& line : m_notes)
        fprintf(stdout, "%s\n", line.toUtf8().constData());
}

QJsonObject Output::object() const
{
    QJsonObject object = m_fields;
    if (!m_notes.isEmpty())
        object.insert("notes", QJsonArray::fromStringList(m_notes));
    return object;
}

std::vector<Command>& registry()
{
    static std::vector<Command> all; // constructed on first use: registration runs at static init
    return all;
}

bool registerCommand(Command const& command)
{
    registry().push_back(command);
    return true;
}

std::vector<Command> const& commands()
{
    return registry();
}

Command const* findCommand(std::string const& name)
{
    for (auto const& c : registry()) {
        if (name == c.name)
            return &c;
    }
    return nullptr;
}

std::string statusName(int32_t status)
{
    using namespace orv::VornStatus;
    switch (status) {
    case Success:
        return "success";
    case DeviceFailure:
        return "device-failure";
    case GenericFailure:
        return "generic-failure";
    case RejectedArgument:
        return "rejected-argument";
    case DataNotAvailable:
        return "data-not-available";
    case InvalidIONumber:
        return "invalid-io-number";
    case PinNotInOutputMode:
        return "pin-not-in-output-mode";
    default:
        return "unknown-" + std::to_string(status);
    }
}

int exitCodeFor(Reply const& reply)
{
    return (!reply.empty() && reply.status() == orv::VornStatus::Success) ? 0 : 1;
}

QString hexDump(unsigned char const* data, size_t size)
{
    QString text;
    for (size_t row = 0; row < size; row += 16) {
        QString hex, ascii;
        for (size_t i = row; i < row + 16; ++i) {
            if (i < size) {
                hex += QString("%1 ").arg(data[i], 2, 16, QChar('0'));
                ascii += (data[i] >= 0x20 && data[i] < 0x7f) ? QChar(data[i]) : QChar('.');
            } else {
                hex += "   ";
            }
        }
        text += QString("%1  %2 %3\n").arg(row, 8, 16, QChar('0')).arg(hex, ascii);
    }
    return text;
}

} // namespace vornhost
