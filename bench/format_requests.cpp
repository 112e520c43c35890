// Format requests through the loaded plug-in, each against the least work that gives the same bytes:
//   Format.Ascii4x16      4 models x 16 ROIs, 644 values as text   vs  snprintf of the same values
//   Format.Images         7 image planes of 640 x 480              vs  malloc + memcpy + free of them
//   Format.MissingOptions the text description without "dataencoding": one note per value, as the
//                         format-results command reports it (notes dropped by the handler here)
//   Format.Tail           p99 over the median of 10,000 text requests
// Every baseline is checked once to produce exactly the plug-in's output before it is timed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <QtGlobal>

#include "BenchCamera.h"
#include "results/ResultKeys.h"

using orv::bench::BenchCamera;

namespace {

constexpr int Models = 4, Rois = 16;
constexpr unsigned ImageWidth = 640, ImageHeight = 480;
namespace Keys = orv::ResultKeys;
char const* const Planes[] = {Keys::DistanceImage,
                              Keys::XImage,
                              Keys::YImage,
                              Keys::ZImage,
                              Keys::AmplitudeImage,
                              Keys::ConfidenceImage,
                              Keys::NormalizedAmplitudeImage};

// The ROI fields the description asks for, with their type and the snprintf conversion that
// writes a value of that type the way the formatter does.
struct Field
{
    char const* id;
    char const* type;
    char const* options; // extra format options of the element
    char const* conversion;
};

Field const RoiFields[] = {
    {"id", "uint16", "", "%d;"},
    {"value", "float32", R"(,"precision":2)", "%.2f;"},
    {"center_x", "int16", "", "%d;"},
    {"center_y", "int16", "", "%d;"},
    {"width", "uint16", "", "%d;"},
    {"height", "uint16", "", "%d;"},
    {"angle", "float32", R"(,"precision":1)", "%.1f;"},
    {"minimum", "int32", "", "%d;"},
    {"maximum", "int32", "", "%d;"},
    {"state", "uint8", "", "%d;"},
};

double roiValue(int model, int roi, int field)
{
    if (field == 0)
        return roi; // a ROI's id is its key in the model
    double const base = 10.0 * model + roi + field;
    return field == 1 || field == 6 ? base + 0.37 : base;
}

std::string resultModel()
{
    std::string json = "{\"ApplicationIndex\": 1";
    for (int m = 1; m <= Models; ++m) {
        char key[32];
        snprintf(key, sizeof key, ", \"model_%03d\": {\"ROIs\": {", m);
        json += key;
        for (int r = 1; r <= Rois; ++r) {
            json += (r > 1 ? ", \"" : "\"") + std::to_string(r) + "\": {\"type\": \"Rect\"";
            for (int f = 0; f < int(std::size(RoiFields)); ++f) {
                char value[64];
                snprintf(value, sizeof value, ", \"%s\": %.2f", RoiFields[f].id, roiValue(m, r, f));
                json += value;
            }
            json += "}";
        }
        json += "}, \"numGood\": 16}";
    }
    return json + "}";
}

std::string asciiDescription(bool withEncoding)
{
    std::string rois;
    for (Field const& field : RoiFields) {
        rois += std::string(rois.empty() ? "" : ",") + R"({"type":")" + field.type + R"(","id":")" +
                field.id + R"(","format":{"alignment":"right")" + field.options +
                R"(}},{"type":"string","value":";"})";
    }
    std::string const encoding = withEncoding ? R"("dataencoding":"ascii")" : "";
    return R"({"format":{"elements":[{"type":"records","id":"models","format":{)" + encoding +
           R"(},"elements":[{"type":"uint16","id":"id"},{"type":"string","value":";"},)" +
           R"({"type":"records","id":"rois","elements":[)" + rois + "]}]}]}}";
}

std::string imagesDescription()
{
    std::string elements;
    for (char const* plane : Planes)
        elements += std::string(elements.empty() ? "" : ",") + R"({"type":"blob","id":")" + plane + "\"}";
    return R"({"format":{"elements":[)" + elements + "]}}";
}

// The 644 values as the baseline writes them, into a buffer of the benchmark's own.
size_t snprintfValues(char* out, size_t capacity)
{
    size_t used = 0;
    for (int m = 1; m <= Models; ++m) {
        used += size_t(snprintf(out + used, capacity - used, "%d;", m));
        for (int r = 1; r <= Rois; ++r) {
            for (int f = 0; f < int(std::size(RoiFields)); ++f) {
                double const value = roiValue(m, r, f);
                char const* conversion = RoiFields[f].conversion;
                used += conversion[1] == 'd'
                            ? size_t(snprintf(out + used, capacity - used, conversion, int(value)))
                            : size_t(snprintf(out + used, capacity - used, conversion, value));
            }
        }
    }
    return used;
}

class Fixture
{
public:
    Fixture()
    {
        for (unsigned i = 0; i < std::size(Planes); ++i)
            planes.push_back(orv::bench::imageChunk(ImageWidth, ImageHeight, 13 + i));
        std::vector<orv::resultsync::FramePublisher::Item> items;
        for (unsigned i = 0; i < std::size(Planes); ++i)
            items.push_back({Planes[i], planes[i].data(), uint32_t(planes[i].size())});
        id = camera.publish(resultModel(), items);
        if (!camera.acquire(id))
            throw std::runtime_error("the published result could not be acquired");
    }

    BenchCamera camera;
    std::string id;
    std::vector<std::vector<unsigned char>> planes;
};

Fixture& fixture()
{
    static Fixture f;
    return f;
}

orv::FormatResultsRequest requestFor(std::string const& json)
{
    orv::FormatResultsRequest request{};
    strncpy(request.resultId, fixture().id.c_str(), sizeof request.resultId - 1);
    request.json = json.data();
    request.jsonLength = uint32_t(json.size());
    return request;
}

void formatLoop(benchmark::State& state, std::string const& json)
{
    orv::FormatResultsRequest const request = requestFor(json);
    size_t size = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(size = fixture().camera.formatSize(request));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
}

void Ascii4x16(benchmark::State& state)
{
    formatLoop(state, asciiDescription(true));
    state.counters["at_most"] = 2.5;
}

void Ascii4x16Baseline(benchmark::State& state)
{
    std::string const expected = fixture().camera.format(fixture().id, asciiDescription(true));
    std::vector<char> buffer(expected.size() + 64);
    std::string const written(buffer.data(), snprintfValues(buffer.data(), buffer.size()));
    if (written != expected) {
        size_t const at =
            size_t(std::mismatch(written.begin(), written.end(), expected.begin(), expected.end()).first -
                   written.begin());
        fprintf(stderr, "from byte %zu the plug-in wrote \"%.40s\", the baseline \"%.40s\"\n", at,
                expected.c_str() + std::min(at, expected.size()), written.c_str() + at);
        state.SkipWithError("the baseline does not write the plug-in's bytes");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(snprintfValues(buffer.data(), buffer.size()));
}

void MissingOptions(benchmark::State& state)
{
    formatLoop(state, asciiDescription(false));
}

void Images(benchmark::State& state)
{
    formatLoop(state, imagesDescription());
    state.counters["at_most"] = 1.3;
}

void ImagesBaseline(benchmark::State& state)
{
    std::vector<std::vector<unsigned char>> const& planes = fixture().planes;
    size_t total = 0;
    for (auto const& plane : planes)
        total += plane.size();
    for (auto _ : state) {
        auto* out = static_cast<unsigned char*>(malloc(total));
        size_t at = 0;
        for (auto const& plane : planes) {
            memcpy(out + at, plane.data(), plane.size());
            at += plane.size();
        }
        benchmark::DoNotOptimize(out);
        free(out);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(total));
}

// Not a Google Benchmark loop: the spread of single requests is the figure.
void Tail(benchmark::State& state)
{
    std::string const json = asciiDescription(true);
    orv::FormatResultsRequest const request = requestFor(json);
    std::vector<double> times;
    for (auto _ : state) {
        times.clear();
        for (int i = 0; i < 10000; ++i) {
            auto const start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(fixture().camera.formatSize(request));
            times.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
        }
    }
    std::sort(times.begin(), times.end());
    state.counters["median_us"] = times[times.size() / 2];
    state.counters["p99_us"] = times[times.size() * 99 / 100];
    state.counters["p99_over_median"] = times[times.size() * 99 / 100] / times[times.size() / 2];
    state.counters["at_most"] = 2;
}

} // namespace

BENCHMARK(Ascii4x16)->Name("Format.Ascii4x16")->Unit(benchmark::kMicrosecond);
BENCHMARK(Ascii4x16Baseline)->Name("Format.Ascii4x16/baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(Images)->Name("Format.Images")->Unit(benchmark::kMicrosecond);
BENCHMARK(ImagesBaseline)->Name("Format.Images/baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(MissingOptions)->Name("Format.MissingOptions")->Unit(benchmark::kMicrosecond);
BENCHMARK(Tail)->Name("Format.Tail")->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // The notes of a description that leaves options out go to Qt's debug output; the host routes
    // them to its own log. Dropping them here measures the plug-in, not the terminal.
    qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {});
    benchmark::Initialize(&argc, argv);
    fixture();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
