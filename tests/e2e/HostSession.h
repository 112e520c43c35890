// The host's side of a session with the loaded plug-in, inside its child process: requests made
// like a host makes them, and each reply written down as one "label=code/status[/detail]".
#pragma once

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sstream>
#include <string>
#include <unistd.h>

#include "PluginChild.h"
#include "device/DeviceReplies.h"
#include "format/VORNFormatResults.h"
#include "info/VORNQueryDeviceInfo.h"
#include "results/VORNResultRecords.h"

namespace orv {
namespace test {

using Detail = std::function<std::string(unsigned char*)>;

// The host's side, inside the plug-in child: sends requests and writes one "label=code/status"
// (and what `detail` reads from the payload) per reply, then frees the reply as the host does.
class Host
{
public:
    explicit Host(LoadedPlugin& plugin) : m_plugin(plugin), m_handle(plugin.init()) {}

    Host& ask(char const* label, int id, void const* payload, Detail const& detail = {})
    {
        DataBlock* reply = m_plugin.request(m_handle, id, payload);
        m_out << label << '=';
        if (reply == nullptr || reply->data == nullptr) {
            m_out << (reply == nullptr ? "none " : "nodata ");
        } else {
            int32_t status;
            memcpy(&status, reply->data, 4);
            m_out << reply->command << '/' << status << (detail ? "/" + detail(reply->data) : "") << ' ';
        }
        LoadedPlugin::freeReply(reply, id);
        return *this;
    }
    void* handle() const { return m_handle; }
    void send() { m_plugin.send(m_out.str()); }

private:
    LoadedPlugin& m_plugin;
    void* m_handle;
    std::ostringstream m_out;
};

inline std::string infoValue(unsigned char* data)
{
    return reinterpret_cast<VORNDeviceInfoReply*>(data)->value;
}

inline std::string statisticValue(unsigned char* data)
{
    auto* reply = reinterpret_cast<VORNStatisticReply*>(data);
    return reply->size == 4 ? std::to_string(*static_cast<uint32_t*>(reply->value)) : "-";
}

inline std::string applications(unsigned char* data)
{
    auto* reply = reinterpret_cast<VORNApplicationListReply*>(data);
    std::string text = std::to_string(reply->active) + ":";
    for (int i = 0; i < reply->count; ++i)
        text += std::to_string(reply->indices[i]) + ",";
    return text;
}

inline std::string ioEcho(unsigned char* data)
{
    return std::to_string(reinterpret_cast<VORNGetIOReply*>(data)->io);
}

// Name and type of a result record; for data, the chunk type in its header and whether the
// header's chunk size is the record's size.
inline std::string resultData(unsigned char* data)
{
    auto* record = reinterpret_cast<VORNResultData_t*>(data);
    std::string text = std::string(record->name) + ":" + std::to_string(record->type);
    if (record->data == nullptr)
        return text + ":" + std::to_string(record->size);
    uint32_t header[2];
    memcpy(header, record->data, sizeof header);
    return text + ":" + std::to_string(header[0]) + (header[1] == record->size ? ":sized" : ":missized");
}

inline std::string formatted(unsigned char* data)
{
    auto* reply = reinterpret_cast<FormatResultsReply*>(data);
    return std::to_string(reply->hasData) + ":" +
           std::string(reinterpret_cast<char*>(reply->data), reply->data ? reply->size : 0);
}

inline VORNQueryProcessData_t query(char const* key, std::string const& id)
{
    VORNQueryProcessData_t q{};
    strncpy(q.key, key, sizeof q.key - 1);
    strncpy(q.id, id.c_str(), sizeof q.id - 1);
    return q;
}

inline VORNStatisticRequest statistic(char const* key, int32_t representation)
{
    VORNStatisticRequest request{};
    strncpy(request.key, key, sizeof request.key - 1);
    request.representation = representation;
    return request;
}

// Hand-over between a test's thread and its plug-in child: one side raises a flag (a file), the other
// waits for it, at most 10 s.
inline void raiseFlag(std::string const& path)
{
    close(creat(path.c_str(), 0600));
}
inline bool waitForFlag(std::string const& path)
{
    for (int i = 0; i < 2000; ++i, usleep(5000))
        if (access(path.c_str(), F_OK) == 0)
            return true;
    return false;
}

} // namespace test
} // namespace orv
