#include "SyntheticScene.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/ChunkHeader.h"
#include "results/ResultKeys.h"

namespace camsim {
namespace {

constexpr double WallMm = 2000.0;
constexpr double BoxMm = 1200.0;
constexpr double FieldOfViewX = 60.0 * M_PI / 180.0;

template <typename T>
Image chunk(std::string key, uint32_t type, uint32_t format, unsigned int width, unsigned int height,
            std::vector<T> const& pixels, uint32_t frame, uint64_t timeStampUs)
{
    Image image;
    image.key = std::move(key);
    size_t const bytes = pixels.size() * sizeof(T);
    image.data.resize(sizeof(orv::ChunkHeader) + bytes);
    orv::ChunkHeader header;
    header.chunkType = type;
    header.chunkSize = static_cast<uint32_t>(image.data.size());
    header.width = width;
    header.height = height;
    header.pixelFormat = format;
    header.timeStamp = static_cast<uint32_t>(timeStampUs / 1000); // milliseconds, wrapping
    header.frameCount = frame;
    memcpy(image.data.data(), &header, sizeof header);
    memcpy(image.data.data() + sizeof header, pixels.data(), bytes);
    return image;
}

// A small deterministic noise source, so that equal frame numbers give equal images.
class Noise
{
public:
    explicit Noise(uint32_t seed) : m_state(seed * 2654435761u + 1) {}
    double next() // -1 .. 1
    {
        m_state = m_state * 1664525u + 1013904223u;
        return (m_state >> 8) / double(1 << 23) - 1.0;
    }

private:
    uint32_t m_state;
};

} // namespace

SyntheticScene::SyntheticScene(unsigned int width, unsigned int height)
    : m_width(width), m_height(height), m_unit(size_t(width) * height * 3)
{
    double const focal = (width / 2.0) / std::tan(FieldOfViewX / 2.0);
    size_t const n = size_t(width) * height;
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            double const u = (x + 0.5 - width / 2.0) / focal;
            double const v = (y + 0.5 - height / 2.0) / focal;
            double const length = std::sqrt(u * u + v * v + 1.0);
            size_t const i = size_t(y) * width + x;
            m_unit[i] = static_cast<float>(u / length);
            m_unit[n + i] = static_cast<float>(v / length);
            m_unit[2 * n + i] = static_cast<float>(1.0 / length);
        }
    }
}

BoxPosition SyntheticScene::box(uint32_t frame) const
{
    int const width = static_cast<int>(m_width / 4);
    int const height = static_cast<int>(m_height / 3);
    int const travel = static_cast<int>(m_width) - width;
    int const phase = static_cast<int>(frame % 20);
    int const step = phase < 10 ? phase : 20 - phase;
    int const left = travel / 4 + step * (travel / 2) / 10;
    return BoxPosition{left, static_cast<int>(m_height) / 3, width, height};
}

std::vector<Image> SyntheticScene::render(uint32_t frame, uint64_t timeStampUs) const
{
    size_t const n = size_t(m_width) * m_height;
    BoxPosition const b = box(frame);
    Noise noise(frame);

    std::vector<uint16_t> distance(n), amplitude(n), normalized(n), confidence(n), raw(n);
    std::vector<int16_t> xs(n), ys(n), zs(n);
    for (unsigned int y = 0; y < m_height; ++y) {
        for (unsigned int x = 0; x < m_width; ++x) {
            size_t const i = size_t(y) * m_width + x;
            bool const onBox =
                int(x) >= b.left && int(x) < b.left + b.width && int(y) >= b.top && int(y) < b.top + b.height;
            double const ez = m_unit[2 * n + i];
            double const d = (onBox ? BoxMm : WallMm) / ez + 3.0 * noise.next();
            double const texture = 0.85 + 0.15 * std::sin(x * 0.3) * std::cos(y * 0.2);
            double const a = std::min(65535.0, 4.0e9 / (d * d) * texture * (onBox ? 1.4 : 1.0));
            distance[i] = static_cast<uint16_t>(d);
            amplitude[i] = static_cast<uint16_t>(a);
            // Normalized to the exposure time: stays within 0..1000 for this scene.
            normalized[i] = static_cast<uint16_t>(std::min(1000.0, a / 3.0));
            bool const edge = onBox && (int(x) == b.left || int(x) == b.left + b.width - 1);
            confidence[i] = static_cast<uint16_t>(edge ? 0x0004 : (a < 300 ? 0x0001 : 0));
            xs[i] = static_cast<int16_t>(d * m_unit[i]);
            ys[i] = static_cast<int16_t>(d * m_unit[n + i]);
            zs[i] = static_cast<int16_t>(d * ez);
            raw[i] = static_cast<uint16_t>(2048 + 1500 * std::sin(d / 750.0 * M_PI + frame * 0.1));
        }
    }
    std::vector<int16_t> cartesian;
    cartesian.reserve(3 * n);
    cartesian.insert(cartesian.end(), xs.begin(), xs.end());
    cartesian.insert(cartesian.end(), ys.begin(), ys.end());
    cartesian.insert(cartesian.end(), zs.begin(), zs.end());
    // Mounted 1.5 m above the floor looking straight ahead: translation in mm, rotation in radians.
    std::vector<float> const extrinsic = {0.0f, 0.0f, 1500.0f, 0.0f, 0.0f, 0.0f};

    unsigned int const w = m_width, h = m_height;
    using namespace ImageChunk;
    namespace Keys = orv::ResultKeys;
    return {
        chunk(Keys::RawImageData, RawImage, PixelFormat::UInt16, w, h, raw, frame, timeStampUs),
        chunk(Keys::DistanceImage, DistanceImage, PixelFormat::UInt16, w, h, distance, frame, timeStampUs),
        chunk(Keys::AmplitudeImage, AmplitudeImage, PixelFormat::UInt16, w, h, amplitude, frame, timeStampUs),
        chunk(Keys::NormalizedAmplitudeImage, NormalizedAmplitudeImage, PixelFormat::UInt16, w, h, normalized,
              frame, timeStampUs),
        chunk(Keys::XImage, XImage, PixelFormat::Int16, w, h, xs, frame, timeStampUs),
        chunk(Keys::YImage, YImage, PixelFormat::Int16, w, h, ys, frame, timeStampUs),
        chunk(Keys::ZImage, ZImage, PixelFormat::Int16, w, h, zs, frame, timeStampUs),
        chunk(Keys::AllCartesianVectorMatrices, CartesianVectors, PixelFormat::Int16, w, h, cartesian, frame,
              timeStampUs),
        chunk(Keys::AllUnitVectorMatrices, UnitVectors, PixelFormat::Float32, w, h, m_unit, frame,
              timeStampUs),
        chunk(Keys::ConfidenceImage, ConfidenceImage, PixelFormat::UInt16, w, h, confidence, frame,
              timeStampUs),
        chunk(Keys::ExtrinsicCalibration, ExtrinsicCalibration, PixelFormat::Float32, 6, 1, extrinsic, frame,
              timeStampUs),
    };
}

} // namespace camsim
