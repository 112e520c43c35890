// Listing of the frame files of one directory, by kind, oldest first.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orv {
namespace resultsync {

struct FrameFile
{
    uint64_t sequence;
    std::string id;
    std::string name;
};

class FrameDirectory
{
public:
    // Makes the directory (and its parents) when missing; false when that fails.
    static bool ensure(std::string const& path);
    // Files with the given prefix ("frame-" or "taken-"), ascending sequence.
    static std::vector<FrameFile> list(std::string const& path, char const* prefix);
};

} // namespace resultsync
} // namespace orv
