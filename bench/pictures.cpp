// The amplitude picture of a 640 x 480 result, each step against the least work with the same result:
//   Picture.Grey      the grey conversion            vs  a lookup table read per pixel into a picture
//                                                        of the same size (table built outside)
//   Picture.PngChunk  the picture's PNG file, from the amplitude chunk (conversion, ROIs, encoding)
//                                                    vs  Qt's own save of the converted picture
#include <benchmark/benchmark.h>

#include <QBuffer>
#include <QImage>
#include <vector>

#include "BenchCamera.h"
#include "results/AmplitudePicture.h"

namespace {

constexpr unsigned Width = 640, Height = 480;
char const* const Model = R"({"model_001": {"ROIs": {"1": {"type": "Rect", "id": 1, "center_x": 320,
    "center_y": 240, "width": 200, "height": 100, "angle": 0}}}})";

std::vector<unsigned char> const& chunk()
{
    static std::vector<unsigned char> const c = orv::bench::imageChunk(Width, Height);
    return c;
}

void Grey(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(orv::AmplitudePicture::grey(chunk().data(), unsigned(chunk().size())));
    state.counters["at_most"] = 1.2;
}

void GreyBaseline(benchmark::State& state)
{
    // The table of every pixel value, taken from the conversion itself, so the pixels are the same.
    QImage const expected = orv::AmplitudePicture::grey(chunk().data(), unsigned(chunk().size()));
    auto const* values = reinterpret_cast<uint16_t const*>(chunk().data() + sizeof(orv::ChunkHeader));
    std::vector<QRgb> table(65536);
    for (unsigned i = 0; i < Width * Height; ++i)
        table[values[i]] = reinterpret_cast<QRgb const*>(expected.constBits())[i];
    for (auto _ : state) {
        QImage picture(Width, Height, QImage::Format_ARGB32);
        auto* out = reinterpret_cast<QRgb*>(picture.bits());
        for (unsigned i = 0; i < Width * Height; ++i)
            out[i] = table[values[i]];
        benchmark::DoNotOptimize(picture);
    }
}

void PngChunk(benchmark::State& state)
{
    QByteArray const model(Model);
    size_t size = 0;
    for (auto _ : state)
        size = size_t(orv::AmplitudePicture::png(chunk().data(), unsigned(chunk().size()), model).size());
    state.counters["png_bytes"] = double(size);
    state.counters["at_most"] = 1.3;
}

void PngChunkBaseline(benchmark::State& state)
{
    QImage const picture = orv::AmplitudePicture::grey(chunk().data(), unsigned(chunk().size()));
    size_t size = 0;
    for (auto _ : state) {
        QByteArray file;
        QBuffer device(&file);
        device.open(QIODevice::WriteOnly);
        picture.save(&device, "PNG");
        size = size_t(file.size());
    }
    state.counters["png_bytes"] = double(size);
}

} // namespace

BENCHMARK(Grey)->Name("Picture.Grey")->Unit(benchmark::kMicrosecond);
BENCHMARK(GreyBaseline)->Name("Picture.Grey/baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(PngChunk)->Name("Picture.PngChunk")->Unit(benchmark::kMillisecond);
BENCHMARK(PngChunkBaseline)->Name("Picture.PngChunk/baseline")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
