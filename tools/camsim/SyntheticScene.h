// The images of one simulated acquisition: a back wall with a box in front of it that moves a little
// from frame to frame, seen through a pinhole lens, with amplitude falling off with distance and a
// little noise. Every image is a chunk: the 48-byte chunk header, then the pixels.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace camsim {

// The chunk types and pixel formats of the camera's own images.
namespace ImageChunk {
constexpr uint32_t RawImage = 100;
constexpr uint32_t DistanceImage = 101;
constexpr uint32_t AmplitudeImage = 102;
constexpr uint32_t NormalizedAmplitudeImage = 103;
constexpr uint32_t XImage = 200;
constexpr uint32_t YImage = 201;
constexpr uint32_t ZImage = 202;
constexpr uint32_t CartesianVectors = 203;
constexpr uint32_t UnitVectors = 204;
constexpr uint32_t ConfidenceImage = 300;
constexpr uint32_t ExtrinsicCalibration = 400;
} // namespace ImageChunk

namespace PixelFormat {
constexpr uint32_t UInt8 = 0;
constexpr uint32_t UInt16 = 2;
constexpr uint32_t Int16 = 3;
constexpr uint32_t Int32 = 4;
constexpr uint32_t Float32 = 6;
} // namespace PixelFormat

struct Image
{
    std::string key;                 // the frame data key
    std::vector<unsigned char> data; // chunk header and pixels
};

struct BoxPosition
{
    int left, top, width, height; // in pixels
};

class SyntheticScene
{
public:
    SyntheticScene(unsigned int width, unsigned int height);

    // All images of frame number `frame`, ready to publish.
    std::vector<Image> render(uint32_t frame, uint64_t timeStampUs) const;
    // Where the box is in that frame, for the result model's regions of interest.
    BoxPosition box(uint32_t frame) const;

    unsigned int width() const { return m_width; }
    unsigned int height() const { return m_height; }

private:
    unsigned int m_width;
    unsigned int m_height;
    std::vector<float> m_unit; // planar: x components, then y, then z
};

} // namespace camsim
