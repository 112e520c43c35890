// The 48-byte header in front of every binary blob the plug-in builds (pictures, diagnostic
// records, JSON texts, ROI masks) and of the camera's own images: twelve little-endian words.
#pragma once

#include <cstdint>

namespace orv {

struct ChunkHeader
{
    uint32_t chunkType = 0;
    uint32_t chunkSize = 0; // header plus data, in bytes
    uint32_t headerSize = 48;
    uint32_t headerVersion = 2;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t pixelFormat = 12;
    uint32_t timeStamp = 0;
    uint32_t frameCount = 0; // running frame number; for a ROI mask, the model id
    uint32_t reserved[3] = {0, 0, 0};
} __attribute__((packed));

static_assert(sizeof(ChunkHeader) == 48, "the chunk header is twelve 32-bit words");

// The chunk types this plug-in produces.
namespace ChunkType {
constexpr uint32_t PngPicture = 130;
constexpr uint32_t DiagnosticRecord = 302;
constexpr uint32_t DiagnosticJson = 305;
constexpr uint32_t JsonModel = 500;
constexpr uint32_t RoiMask = 501;
} // namespace ChunkType

} // namespace orv
