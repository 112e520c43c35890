// A client's cycle through the loaded plug-in, with the frame and the result hash published by the
// benchmark like a camera publishes them:
//   Cycle          acquire, query "distance_image", "json_model" and "json_diagnostic", a small
//                  format request, free     vs  the two Redis round trips the cycle needs (the
//                                               result's model field and the result's whole hash)
//   Cycle.Memory   100,000 cycles after the others warmed up: resident memory and frames left
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <hiredis/hiredis.h>
#include <string>
#include <vector>

#include <QtGlobal>

#include "BenchCamera.h"
#include "ProcessMemory.h"
#include "results/ResultKeys.h"

using orv::bench::BenchCamera;

namespace {

constexpr char Model[] =
    "{\"ApplicationIndex\": 1, \"model_001\": {\"ROIs\": {\"1\": {\"type\": \"Rect\", \"id\": 1, "
    "\"center_x\": 88, \"center_y\": 66, \"width\": 40, \"height\": 30, \"angle\": 0}}, \"numGood\": 1}}";
constexpr char SmallFormat[] =
    R"({"format":{"elements":[{"type":"string","value":"<"},)"
    R"({"type":"float32","id":"temp_illu","format":{"dataencoding":"ascii","precision":1}},)"
    R"({"type":"records","id":"models","format":{"dataencoding":"binary"},"elements":[)"
    R"({"type":"uint8","id":"id"},{"type":"uint16","id":"rois.count"}]},{"type":"string","value":">"}]}})";

struct Fixture
{
    Fixture()
    {
        // The format request's notes about options it lacks would flood the output.
        qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {});
    }

    std::string publish() { return camera.publishPictured(Model); }

    // The step that failed, or null.
    char const* cycle(std::string const& id)
    {
        char const* failed = camera.acquire(id) ? nullptr : "acquire";
        for (char const* key :
             {orv::ResultKeys::DistanceImage, orv::ResultKeys::JsonModel, orv::ResultKeys::JsonDiagnostic}) {
            if (!camera.query(key, id) && failed == nullptr)
                failed = key;
        }
        std::string const bytes = camera.format(id, SmallFormat);
        if (bytes != std::string("<41.2\x01\x01\x00>", 9) && failed == nullptr) {
            fprintf(stderr, "the format request wrote %zu bytes: %s\n", bytes.size(), bytes.c_str());
            failed = "format request";
        }
        if (!camera.free(id) && failed == nullptr)
            failed = "free";
        return failed;
    }

    BenchCamera camera;
};

Fixture& fixture()
{
    static Fixture f;
    return f;
}

void Cycle(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        state.PauseTiming();
        std::string const id = f.publish();
        state.ResumeTiming();
        if (char const* failed = f.cycle(id)) {
            state.SkipWithError(failed);
            break;
        }
    }
    state.counters["at_most"] = 1.6;
}

void CycleBaseline(benchmark::State& state)
{
    Fixture& f = fixture();
    std::string const id = f.publish();
    // Only the result's hash is read here; its frame is taken away, or later cycles would get it.
    f.camera.acquire(id);
    f.camera.free(id);
    std::string const key = "result_" + id;
    redisContext* context = redisConnectUnix(f.camera.redis().socketPath().c_str());
    for (auto _ : state) {
        state.PauseTiming(); // as the cycle pauses for its publishing
        state.ResumeTiming();
        auto* model = static_cast<redisReply*>(redisCommand(context, "HGET %s ModelResult", key.c_str()));
        auto* hash = static_cast<redisReply*>(redisCommand(context, "HGETALL %s", key.c_str()));
        if (model == nullptr || hash == nullptr || hash->elements == 0)
            state.SkipWithError("the result hash is not there");
        freeReplyObject(model);
        freeReplyObject(hash);
    }
    redisFree(context);
}

void Memory(benchmark::State& state)
{
    Fixture& f = fixture();
    for (int i = 0; i < 1000; ++i) // warm-up: the allocator's pools and Qt's caches fill first
        f.cycle(f.publish());
    long const before = orv::test::residentKb();
    for (auto _ : state) {
        for (int i = 0; i < 100000; ++i) {
            if (char const* failed = f.cycle(f.publish())) {
                state.SkipWithError(failed);
                return;
            }
        }
    }
    state.counters["rss_growth_kB"] = double(orv::test::residentKb() - before);
    state.counters["frames_left"] =
        double(std::distance(std::filesystem::directory_iterator(f.camera.frameDir()), {}));
}

} // namespace

BENCHMARK(Cycle)->Name("Cycle")->Unit(benchmark::kMicrosecond);
BENCHMARK(CycleBaseline)->Name("Cycle/baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(Memory)->Name("Cycle.Memory")->Iterations(1)->Repetitions(1)->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
