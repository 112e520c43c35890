#include "resultsync/FrameClient.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "core/Paths.h"
#include "resultsync/FrameDirectory.h"
#include "resultsync/FrameFormat.h"
#include "resultsync/FrameName.h"
#include "resultsync/MappedFrame.h"

namespace orv {
namespace resultsync {

FrameClient::FrameClient(bool consume, std::string directory)
    : m_directory(directory.empty() ? Paths::frameDir() : std::move(directory)), m_consume(consume)
{
    // The client may start before the camera has published anything; the directory is made here so
    // that the watch can be set up at once and no frame is missed.
    FrameDirectory::ensure(m_directory);
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify < 0 || inotify_add_watch(m_inotify, m_directory.c_str(), IN_MOVED_TO) < 0)
        fprintf(stderr, "FrameClient: cannot watch %s: %s\n", m_directory.c_str(), strerror(errno));
}

FrameClient::~FrameClient()
{
    if (m_inotify >= 0)
        close(m_inotify);
}

std::unique_ptr<Frame> FrameClient::waitForFrame(int ms)
{
    using Clock = std::chrono::steady_clock;
    auto const deadline = Clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        // Events that arrive after this drain wake the wait below, so nothing published between
        // the scan and the wait is missed.
        drainEvents();
        if (std::unique_ptr<Frame> frame = takeOldest())
            return frame;
        int left = -1;
        if (ms >= 0) {
            auto const remaining =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (remaining.count() <= 0)
                return nullptr;
            left = static_cast<int>(remaining.count());
        }
        waitForChange(left);
    }
}

std::unique_ptr<Frame> FrameClient::takeOldest()
{
    // A consumer also removes the frames of a consumer that died with them, in the same pass.
    auto const files = m_consume ? FrameDirectory::reclaimAndList(m_directory, FrameFormat::FramePrefix)
                                 : FrameDirectory::list(m_directory, FrameFormat::FramePrefix);
    for (FrameFile const& file : files) {
        if (!m_consume && file.sequence <= m_lastSequence)
            continue;
        std::string path = m_directory + "/" + file.name;
        std::unique_ptr<MappedFrame> frame;
        if (m_consume) {
            // The lock, taken before the rename and held while the frame lives, tells others that
            // the claimed file is in use; the rename is the claim itself: of several clients
            // exactly one succeeds, and a frame that the publisher dropped meanwhile is simply gone.
            int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd < 0)
                continue;
            std::string const taken = m_directory + "/" + FrameName::taken(file.sequence, file.id);
            if (flock(fd, LOCK_EX | LOCK_NB) != 0 || rename(path.c_str(), taken.c_str()) != 0) {
                close(fd);
                continue;
            }
            path = taken;
            frame = MappedFrame::open(fd, path, true);
        } else {
            frame = MappedFrame::open(path, false);
        }
        m_lastSequence = file.sequence;
        if (frame)
            return frame;
        fprintf(stderr, "FrameClient: skipping unreadable frame %s\n", path.c_str());
        if (m_consume)
            unlink(path.c_str());
    }
    return nullptr;
}

void FrameClient::waitForChange(int ms)
{
    if (m_inotify < 0) {
        // Without a watch there is nothing to wait on; sleep in short steps instead of spinning.
        usleep(static_cast<useconds_t>((ms < 0 || ms > 20 ? 20 : ms) * 1000));
        return;
    }
    // Woken, timed out or interrupted: the caller looks again either way.
    pollfd p{m_inotify, POLLIN, 0};
    poll(&p, 1, ms);
}

void FrameClient::drainEvents()
{
    if (m_inotify < 0)
        return;
    alignas(inotify_event) char buffer[4096];
    while (read(m_inotify, buffer, sizeof buffer) > 0) {
    }
}

} // namespace resultsync
} // namespace orv
