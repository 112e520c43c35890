// The cost of one client cycle through the loaded plug-in: acquire a result id, query frame data and
// the derived data by key, free the id; with the frame and the result hash published by the
// benchmark like a camera publishes them. Run: bench_result_cycles (10,000 cycles per benchmark;
// the last one repeats the derived-data cycles to show that memory stays flat once warm).
#include <benchmark/benchmark.h>

#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <string>
#include <vector>

#include "PluginChild.h"
#include "ProcessMemory.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "core/ChunkHeader.h"
#include "core/DataBlock.h"
#include "resultsync/FramePublisher.h"

namespace {

constexpr int QueryResultData = 2;
constexpr int AcquireResultId = 4;
constexpr int FreeRequestId = 5;
constexpr unsigned Width = 176, Height = 132;

int filesIn(std::string const& dir)
{
    int n = 0;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

// One camera side and one loaded plug-in for the whole program.
class Camera
{
public:
    Camera()
        : m_noBus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_dir.file("no-bus")),
          m_frameEnv("ORV_FRAME_DIR", m_dir.file("frames")), m_publisher(16, m_dir.file("frames"))
    {
        std::vector<uint16_t> pixels(Width * Height);
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = static_cast<uint16_t>((i * 13) % 1000);
        m_image.resize(48 + pixels.size() * 2);
        orv::ChunkHeader header;
        header.chunkType = 103;
        header.chunkSize = static_cast<uint32_t>(m_image.size());
        header.width = Width;
        header.height = Height;
        header.pixelFormat = 2;
        memcpy(m_image.data(), &header, 48);
        memcpy(m_image.data() + 48, pixels.data(), pixels.size() * 2);

        m_library = dlopen(orv::test::pluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_library == nullptr)
            throw std::runtime_error(dlerror());
        auto init = reinterpret_cast<void* (*)()>(dlsym(m_library, "VORN_init"));
        m_call = reinterpret_cast<DataBlock* (*)(void*, DataBlock*)>(dlsym(m_library, "VORN_handle_call"));
        m_handle = init();
    }

    std::string publish()
    {
        std::string const id = std::to_string(++m_lastId);
        m_redis.cache().command({"HSET", "result_" + id, "ModelResult", kModel, "DiagnosticData",
                                 "{\"temperatureIllu\": 41.2}", "TemperatureIllu", "41.2", "FrameDuration",
                                 "33000"});
        m_publisher.publish(id, {{"normalized_amplitude_image", m_image.data(), uint32_t(m_image.size())},
                                 {"distance_image", m_image.data(), uint32_t(m_image.size())}});
        return id;
    }

    bool call(int command, void const* payload)
    {
        DataBlock block;
        memset(&block, 0, sizeof block);
        block.command = command;
        block.data = static_cast<unsigned char*>(const_cast<void*>(payload));
        DataBlock* reply = m_call(m_handle, &block);
        bool ok = reply != nullptr && reply->data != nullptr;
        int32_t status = -1;
        if (ok)
            memcpy(&status, reply->data, 4);
        if (reply != nullptr)
            free(reply->data);
        free(reply);
        return ok && status == 0;
    }

    bool query(std::string const& key, std::string const& id)
    {
        char request[512] = {};
        memcpy(request, key.data(), key.size());
        memcpy(request + 256, id.data(), id.size());
        return call(QueryResultData, request);
    }

    std::string frameDir() const { return m_dir.file("frames"); }

private:
    static constexpr char const* kModel =
        "{\"ApplicationIndex\": 1, \"model_001\": {\"ROIs\": {\"1\": {\"type\": \"Rect\", \"id\": 1, "
        "\"center_x\": 88, \"center_y\": 66, \"width\": 40, \"height\": 30, \"angle\": 0}}, \"numGood\": 1}}";

    orv::test::TempDir m_dir{"kv-bench"};
    orv::test::ScopedEnv m_noBus;
    orv::test::ScopedEnv m_frameEnv;
    orv::test::RedisEnvironment m_redis;
    orv::resultsync::FramePublisher m_publisher;
    std::vector<unsigned char> m_image;
    void* m_library = nullptr;
    void* m_handle = nullptr;
    DataBlock* (*m_call)(void*, DataBlock*) = nullptr;
    unsigned m_lastId = 0;
};

Camera& camera()
{
    static Camera c;
    return c;
}

void cycles(benchmark::State& state, std::vector<std::string> const& keys)
{
    Camera& cam = camera();
    long const before = orv::test::residentKb();
    for (auto _ : state) {
        state.PauseTiming();
        std::string const id = cam.publish();
        state.ResumeTiming();
        bool ok = cam.call(AcquireResultId, id.c_str());
        for (std::string const& key : keys)
            ok = cam.query(key, id) && ok;
        ok = cam.call(FreeRequestId, id.c_str()) && ok;
        if (!ok) {
            state.SkipWithError("a request of the cycle failed");
            break;
        }
    }
    state.counters["rss_growth_kB"] = double(orv::test::residentKb() - before);
    state.counters["frames_left"] = filesIn(cam.frameDir());
}

void FrameDataOnly(benchmark::State& state)
{
    cycles(state, {"distance_image", "normalized_amplitude_image"});
}

void WithDerivedData(benchmark::State& state)
{
    cycles(state, {"distance_image", "json_model", "json_diagnostic", "z4_amplitude_png"});
}

BENCHMARK(FrameDataOnly)->Iterations(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(WithDerivedData)->Iterations(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(WithDerivedData)
    ->Iterations(10000)
    ->Unit(benchmark::kMicrosecond)
    ->Name("WithDerivedDataAfterWarmUp");

} // namespace

BENCHMARK_MAIN();
