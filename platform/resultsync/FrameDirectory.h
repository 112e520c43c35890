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
    // The same, in the same pass over the folder, after removing what nobody will ever give back:
    // claimed frames whose claimant has gone (a host that died while it held one; a claimant holds a
    // lock on its file for as long as it has the frame) and files that a writer which no longer runs
    // left in writing. The folder is the camera's RAM. prefix must not be "taken-".
    static std::vector<FrameFile> reclaimAndList(std::string const& path, char const* prefix);

private:
    static std::vector<FrameFile> scan(std::string const& path, char const* prefix, bool reclaiming);
    static void reclaimIfAbandoned(int dir, std::string const& name);
};

} // namespace resultsync
} // namespace orv
