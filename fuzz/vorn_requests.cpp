// Request records as a host may send them: the first byte picks the command id, the rest fills the
// request's fields byte for byte (a fixed-size text field may come without its terminating zero),
// through the plug-in's dispatch as VORN_handle_call runs it, on Redis and a frame folder, no bus.
// Each payload is exactly as large as its record, so a read past a field is seen by the sanitizers.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "PluginChild.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "core/ChunkHeader.h"
#include "device/DeviceReplies.h"
#include "format/VORNFormatResults.h"
#include "plugin/KestrelVORN.h"
#include "results/VORNResultRecords.h"
#include "resultsync/FramePublisher.h"

using namespace orv;

namespace {

struct Plugin
{
    test::RedisEnvironment redis;
    test::TempDir frames{"kv-fuzz-frames"};
    test::ScopedEnv frameDir{"ORV_FRAME_DIR", frames.path()};
    test::ScopedEnv runDir{"ORV_IMAGER_RUN_DIR", frames.path()};
    test::ScopedEnv noBus{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"};
    test::ScopedEnv schema{"ORV_VORN_SCHEMA_DIR", KV_SOURCE_DIR "/schema"};
    KestrelVORN vorn;
    resultsync::FramePublisher publisher{8, frames.path()};
    std::string amplitude;

    Plugin()
    {
        redis.cache().command(
            {"HSET", "result_1", "ModelResult",
             R"({"ApplicationIndex":1,"model_001":{"ROIs":{"1":{"type":"Circle","width":4}}}})",
             "DiagnosticData", "{}", "FrameDuration", "2500"});
        ChunkHeader header;
        header.width = 4;
        header.height = 2;
        amplitude.assign(reinterpret_cast<char const*>(&header), sizeof header);
        amplitude.append(16, '\x07');
    }
    // A frame waits before every acquire, so that it never waits out its second.
    void publish(std::string const& id)
    {
        if (!publisher.publish(
                id, {{"normalized_amplitude_image", amplitude.data(), uint32_t(amplitude.size())}}))
            publisher.publish("1", {{"distance_image", amplitude.data(), uint32_t(amplitude.size())}});
    }
};

int const ids[] = {2, 4, 5, 9, 10, 11, 12, 14, 17, 20, 22, 26, 27, 3};
std::map<int, size_t> const fixedSizes{{2, sizeof(VORNQueryProcessData_t)},
                                       {11, sizeof(VORNSetIORequest)},
                                       {12, sizeof(int32_t)},
                                       {17, sizeof(int32_t)},
                                       {22, sizeof(VORNStatisticRequest)}};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static Plugin* plugin = new Plugin;
    if (size == 0)
        return 0;
    int const id = ids[data[0] % (sizeof ids / sizeof ids[0])];
    std::string const rest(reinterpret_cast<char const*>(data) + 1, size - 1);
    std::vector<unsigned char> payload;
    std::vector<char> json; // the format request's text, read by address and length
    FormatResultsRequest format{};
    switch (id) {
    case 26: {
        size_t const head = std::min(rest.size(), sizeof format.resultId + sizeof format.busByteOrder);
        memcpy(format.resultId, rest.data(), std::min(head, sizeof format.resultId));
        memcpy(&format.busByteOrder, rest.data() + std::min(head, sizeof format.resultId),
               head - std::min(head, sizeof format.resultId));
        json.assign(rest.begin() + static_cast<long>(head), rest.end());
        format.json = json.data();
        format.jsonLength = static_cast<uint32_t>(json.size());
        payload.assign(reinterpret_cast<unsigned char*>(&format),
                       reinterpret_cast<unsigned char*>(&format + 1));
        break;
    }
    case 4:
        plugin->publish(rest.c_str());
        [[fallthrough]];
    case 5:
    case 20:
    case 27: // NUL-terminated texts, as the host sends them
        payload.assign(rest.begin(), rest.end());
        payload.push_back(0);
        break;
    default: // records of a fixed size; 3, 9, 10, 14: no payload is read
        if (fixedSizes.count(id) != 0) {
            payload.assign(fixedSizes.at(id), 0);
            memcpy(payload.data(), rest.data(), std::min(payload.size(), rest.size()));
        }
    }
    DataBlock request{};
    request.command = id;
    request.data = payload.empty() ? nullptr : payload.data();
    test::LoadedPlugin::freeReply(plugin->vorn.dispatch(&request), id);
    return 0;
}
