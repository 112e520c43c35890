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
    // Removes what nobody will ever give back: claimed frames whose claimant has gone (a host that
    // died while it held one; a claimant holds a lock on its file for as long as it has the frame)
    // and files that a writer which no longer runs left in writing. The folder is the camera's RAM.
    static void reclaim(std::string const& path);
};

} // namespace resultsync
} // namespace orv
