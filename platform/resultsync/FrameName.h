// Builds and reads the names of frame files, which carry the sequence number and the result id so
// that the oldest frame and its id are known without opening it.
#pragma once

#include <cstdint>
#include <string>

namespace orv {
namespace resultsync {

class FrameName
{
public:
    static std::string published(uint64_t sequence, std::string const& id);
    static std::string taken(uint64_t sequence, std::string const& id);

    // True for a name of the given prefix ("frame-" or "taken-"); fills sequence and id.
    static bool parse(std::string const& name, char const* prefix, uint64_t* sequence, std::string* id);
};

} // namespace resultsync
} // namespace orv
