// The soak: a million requests of every command id, valid and invalid, in random order, through the
// plug-in loaded as the host loads it, while the simulated camera publishes 30 results a second.
// After a warm-up, the process's resident memory, its open descriptors, the frame folder and the
// Redis server's memory must stay flat (within 1 %); the run ends with exit code 1 otherwise.
//   bench_soak [REQUESTS]        (default 1000000; scripts/bench.sh runs it with --soak)
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <QtGlobal>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "PluginChild.h"
#include "ProcessMemory.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "core/CommandId.h"
#include "core/DataBlock.h"
#include "device/DeviceReplies.h"
#include "format/VORNFormatResults.h"
#include "results/ResultKeys.h"
#include "results/VORNResultRecords.h"
#include "resultsync/FrameClient.h"

using namespace orv;

namespace {

struct Levels
{
    long residentKb, descriptors, frames, redisBytes;
    std::set<std::string> openFiles; // what the descriptors refer to, to name a leak
};

class Soak
{
public:
    Soak()
    {
        options.rate = 30;
        camera = std::make_unique<test::CameraSim>(options); // points ORV_FRAME_DIR at its folder
        m_observer = std::make_unique<resultsync::FrameClient>(false);
        void* library = dlopen(test::pluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            throw std::runtime_error(dlerror());
        m_call = reinterpret_cast<DataBlock* (*)(void*, DataBlock*)>(dlsym(library, "VORN_handle_call"));
        m_handle = reinterpret_cast<void* (*)()>(dlsym(library, "VORN_init"))();
    }

    // One request of a random command, valid or not; acquires only when a result is waiting.
    void request()
    {
        using namespace CommandId;
        static int const ids[] = {QueryResultData,
                                  AcquireResultId,
                                  FreeResultId,
                                  AsyncTrigger,
                                  SyncTrigger,
                                  SetIO,
                                  GetIO,
                                  GetApplicationList,
                                  SetApplication,
                                  QueryDeviceInfo,
                                  QueryStatisticInfo,
                                  FormatResults,
                                  ValidateFormat,
                                  3,
                                  0,
                                  -7}; // and some unknown
        int const id = ids[pick(sizeof ids / sizeof ids[0])];
        bool const valid = pick(4) != 0;
        std::vector<unsigned char> payload;
        FormatResultsRequest format{};
        std::string json;
        switch (id) {
        case AcquireResultId:
            if (valid) {
                std::unique_ptr<resultsync::Frame> next = m_observer->waitForFrame(0);
                if (!next)
                    return; // acquire would wait for the camera's next result
                m_id = next->getId();
            }
            text(valid ? m_id : std::string(), payload);
            break;
        case FreeResultId:
            text(valid ? m_id : "77", payload);
            break;
        case AsyncTrigger:
        case SyncTrigger:
            if (pick(50) != 0)
                return; // every trigger publishes a result: seldom, so the camera keeps its 30 a second
            break;
        case QueryResultData: {
            static char const* const keys[] = {
                orv::ResultKeys::DistanceImage,  orv::ResultKeys::JsonModel,
                orv::ResultKeys::JsonDiagnostic, orv::ResultKeys::AmplitudePicture,
                orv::ResultKeys::XImage,         "bogus"};
            payload.assign(512, 0);
            std::string const key = valid ? keys[pick(6)] : std::string(256, 'k');
            memcpy(payload.data(), key.data(), std::min<size_t>(256, key.size()));
            memcpy(payload.data() + 256, m_id.data(), m_id.size());
            break;
        }
        case SetIO:
        case GetIO:
        case SetApplication: {
            int32_t const values[2] = {valid ? int32_t(1 + pick(3)) : int32_t(pick(100) - 50),
                                       int32_t(pick(2))};
            payload.assign(reinterpret_cast<unsigned char const*>(values),
                           reinterpret_cast<unsigned char const*>(values + 2));
            break;
        }
        case QueryDeviceInfo:
            text(valid ? "mac_address" : std::string(300, 'v'), payload);
            break;
        case QueryStatisticInfo: {
            VORNStatisticRequest statistic{};
            strcpy(statistic.key, valid ? "number_of_results" : "none");
            statistic.representation = valid ? int32_t(1 + pick(4)) : 9;
            payload.assign(reinterpret_cast<unsigned char*>(&statistic),
                           reinterpret_cast<unsigned char*>(&statistic + 1));
            break;
        }
        case FormatResults:
            json =
                valid
                    ? R"({"format":{"elements":[{"type":"string","value":"<"},{"type":"uint16","id":"evaltime"},
                {"type":"records","id":"models","elements":[{"type":"uint8","id":"id"},
                {"type":"records","id":"rois","elements":[{"type":"float32","id":"value","format":{"precision":2}}]}]},
                {"type":"blob","id":"json_model"},{"type":"string","value":">"}]}})"
                    : R"({"format":{"elements":[{"type":"int8","value":1},{"a":{"x":1},"a":2}]})";
            strncpy(format.resultId, m_id.c_str(), sizeof format.resultId - 1);
            format.json = json.data();
            format.jsonLength = uint32_t(json.size());
            payload.assign(reinterpret_cast<unsigned char*>(&format),
                           reinterpret_cast<unsigned char*>(&format + 1));
            break;
        case ValidateFormat:
            text(valid ? R"({"elements":[{"type":"string","value":"x"}]})" : "{\"elements\":[", payload);
            break;
        default:
            break;
        }
        DataBlock block{};
        block.command = id;
        block.data = payload.empty() ? nullptr : payload.data();
        test::LoadedPlugin::freeReply(m_call(m_handle, &block), id);
        ++m_sent;
    }

    // Measured with nothing acquired: a claimed frame holds one descriptor while it is held.
    Levels levels()
    {
        std::vector<unsigned char> id;
        text(m_id, id);
        DataBlock block{};
        block.command = CommandId::FreeResultId;
        block.data = id.data();
        test::LoadedPlugin::freeReply(m_call(m_handle, &block), CommandId::FreeResultId);
        auto const filesIn = [](std::string const& dir) {
            return long(std::distance(std::filesystem::directory_iterator(dir), {}));
        };
        // A frame that acquire took but did not expect stays with the plug-in until its own id is
        // freed (at most one, and the frame folder's count covers it): not counted as a descriptor.
        std::set<std::string> openFiles;
        long descriptors = 0;
        for (auto const& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            std::string const file = std::filesystem::read_symlink(fd.path(), ignored).string();
            openFiles.insert(file);
            descriptors += file.find("/taken-") == std::string::npos;
        }
        test::RedisReply const info = redis.cache().command({"INFO", "memory"});
        size_t const at = info.str.find("used_memory:");
        long const redisBytes = at == std::string::npos ? -1 : atol(info.str.c_str() + at + 12);
        return {test::residentKb(), descriptors, filesIn(camera->frameDir()), redisBytes, openFiles};
    }
    long sent() const { return m_sent; }

private:
    size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(m_random); }
    static void text(std::string const& value, std::vector<unsigned char>& payload)
    {
        payload.assign(value.begin(), value.end());
        payload.push_back(0);
    }

public:
    test::RedisEnvironment redis;
    test::DBusDaemon bus;
    test::CameraSimOptions options;
    std::unique_ptr<test::CameraSim> camera;

private:
    std::unique_ptr<resultsync::FrameClient> m_observer;
    DataBlock* (*m_call)(void*, DataBlock*) = nullptr;
    void* m_handle = nullptr;
    std::mt19937 m_random{20261122};
    std::string m_id = "1";
    long m_sent = 0;
};

bool flat(char const* what, long warm, long end)
{
    double const growth = warm > 0 ? 100.0 * double(end - warm) / double(warm) : 0;
    bool const ok = growth <= 1.0;
    printf("  %-22s %12ld -> %12ld  (%+.2f %%)%s\n", what, warm, end, growth, ok ? "" : "  NOT FLAT");
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    long const requests = argc > 1 ? atol(argv[1]) : 1000000;
    // The plug-in's formatting notes go to Qt's debug output; a million of them would only slow this.
    qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {});
    Soak soak;
    long const warmUp = requests / 10;
    Levels warm{};
    for (long i = 0; soak.sent() < requests; ++i) {
        soak.request();
        if (soak.sent() == warmUp)
            warm = soak.levels();
        if (i % 100000 == 0)
            fprintf(stderr, "soak: %ld requests\n", soak.sent());
    }
    Levels const end = soak.levels();
    printf("soak: %ld requests of all 13 command ids and unsupported ones, camera at 30 results a second\n",
           soak.sent());
    printf("  after warm-up (%ld requests) -> at the end\n", warmUp);
    bool ok = flat("resident memory, kB", warm.residentKb, end.residentKb);
    if (!flat("open descriptors", warm.descriptors, end.descriptors)) {
        ok = false;
        for (std::string const& file : end.openFiles) {
            if (!warm.openFiles.count(file))
                printf("    opened since the warm-up: %s\n", file.c_str());
        }
    }
    // The camera keeps a ring of frames; the folder holds at most that many plus the one acquired.
    ok = flat("frame folder, files", std::max(warm.frames, long(soak.options.ring + 1)), end.frames) && ok;
    ok = flat("Redis memory, bytes", warm.redisBytes, end.redisBytes) && ok;
    printf("soak: %s\n", ok ? "flat" : "NOT FLAT");
    return ok ? 0 : 1;
}
