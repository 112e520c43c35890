// Hands out the camera's result frames one at a time, oldest first, as they are published in the
// frame directory. A consuming client takes each frame off the queue; an observing one only looks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "resultsync/Frame.h"

namespace orv {
namespace resultsync {

class FrameClient
{
public:
    // consume = true: each frame is claimed for this client alone (no other client receives it),
    // and deleting the frame removes its file. consume = false: frames are left in place for
    // others; this client still sees each frame once, in order.
    explicit FrameClient(bool consume, std::string directory = "");
    virtual ~FrameClient();

    FrameClient(FrameClient const&) = delete;
    FrameClient& operator=(FrameClient const&) = delete;

    // The oldest frame not yet handed out, waiting up to ms milliseconds for one to be published
    // (a negative ms waits without limit); null on time-out.
    std::unique_ptr<Frame> waitForFrame(int ms);

private:
    std::unique_ptr<Frame> takeOldest();
    void waitForChange(int ms);
    void drainEvents();

    std::string m_directory;
    bool m_consume;
    int m_inotify = -1;
    uint64_t m_lastSequence = 0; // newest frame handed out, for an observing client
};

} // namespace resultsync
} // namespace orv
