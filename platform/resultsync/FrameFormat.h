// The layout of one frame file: a fixed header, a fixed-size index entry per data item, then the
// items, each starting on a 64-byte boundary so that pixels of any type are aligned in the mapping.
#pragma once

#include <cstdint>

namespace orv {
namespace resultsync {
namespace FrameFormat {

constexpr char Magic[8] = {'K', 'V', 'F', 'R', 'A', 'M', 'E', '1'};
constexpr uint32_t Version = 1;
constexpr uint32_t MaxIdLength = 31;
constexpr uint32_t MaxKeyLength = 63;
constexpr uint32_t DataAlignment = 64;

struct Header
{
    char magic[8];
    uint32_t version;
    uint32_t itemCount;
    uint64_t sequence;
    char id[MaxIdLength + 1]; // NUL-terminated result id
};

struct IndexEntry
{
    char key[MaxKeyLength + 1]; // NUL-terminated data key
    uint32_t offset;            // from the start of the file
    uint32_t size;
};

static_assert(sizeof(Header) == 56, "frame header layout");
static_assert(sizeof(IndexEntry) == 72, "frame index entry layout");

// File names: published frames are "frame-<sequence>-<id>.kvf" with a zero-padded 20-digit
// sequence, claimed frames "taken-<sequence>-<id>.kvf"; files in writing start with a dot.
constexpr char FramePrefix[] = "frame-";
constexpr char TakenPrefix[] = "taken-";
constexpr char Suffix[] = ".kvf";

} // namespace FrameFormat
} // namespace resultsync
} // namespace orv
