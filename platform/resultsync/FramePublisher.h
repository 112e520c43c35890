// Publishes result frames the way the camera's processing side does: each frame is one file in the
// frame directory, complete before it becomes visible, and only the newest frames are kept.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace orv {
namespace resultsync {

class FramePublisher
{
public:
    struct Item
    {
        std::string key;
        void const* data;
        uint32_t size;
    };

    // Creates the directory when missing and continues the sequence of frames already there.
    explicit FramePublisher(unsigned int maxFrames = 8, std::string directory = "");

    FramePublisher(FramePublisher const&) = delete;
    FramePublisher& operator=(FramePublisher const&) = delete;

    // Writes one frame under a temporary name and renames it into place, then drops the oldest
    // published frames beyond the limit. Safe to call from several threads. False (with the reason
    // on standard error) when the frame could not be written or a key or the id is too long.
    bool publish(std::string const& id, std::vector<Item> const& items);

    // Removes every frame file in the directory, published or claimed, and files left in writing.
    void removeAll();

    std::string const& directory() const { return m_directory; }

private:
    bool writeFile(std::string const& path, uint64_t sequence, std::string const& id,
                   std::vector<Item> const& items);
    void dropOldest();

    std::mutex m_mutex;
    std::string m_directory;
    unsigned int m_maxFrames;
    uint64_t m_nextSequence = 1;
};

} // namespace resultsync
} // namespace orv
