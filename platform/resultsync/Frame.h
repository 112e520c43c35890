// One result frame handed out by the frame client: its data items by key, read straight from the
// frame file's read-only mapping, and its result id. Deleting it gives the frame back.
#pragma once

#include <cstdint>
#include <string>

namespace orv {
namespace resultsync {

class Frame
{
public:
    // Address of the key's data inside the mapping (null when the frame has no such key); the byte
    // count goes through size when size is not null. Valid until the frame is deleted.
    virtual void const* getData(std::string const& key, uint32_t* size) = 0;
    virtual std::string getId() = 0;
    virtual ~Frame() = default;
};

} // namespace resultsync
} // namespace orv
