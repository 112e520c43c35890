// The built simulated camera in a process of its own: results published into frame and imager-run
// directories of the test's own (ORV_FRAME_DIR and ORV_IMAGER_RUN_DIR point at them while the
// object lives) and, when DBUS_SYSTEM_BUS_ADDRESS names a bus, the device services on it. Stopped
// with SIGTERM on destruction. Needs the Redis environment.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "ScopedEnv.h"
#include "TempDir.h"

namespace orv::test {

struct CameraSimOptions
{
    double rate = 0; // results per second; 0: only on trigger()
    std::string size = "176x132";
    unsigned int ring = 8;
    int applications = 3;
    std::vector<std::string> faults; // "method=kind[:value]", as camsim's --fault takes them
    std::string rois; // ROIs per model, as camsim's --rois takes them ("4,5,0"); empty: its own
};

class CameraSim
{
public:
    // Throws std::runtime_error when the camera does not report ready in time.
    explicit CameraSim(CameraSimOptions const& options = {});
    ~CameraSim() { stop(); }
    CameraSim(CameraSim const&) = delete;
    CameraSim& operator=(CameraSim const&) = delete;

    // Publishes one result and returns its id (throws when none comes within 10 s).
    std::string trigger();
    // SIGTERM and wait; the exit code, or -1 when it did not exit by itself. Idempotent.
    int stop();
    pid_t pid() const { return m_pid; }

    std::string const& frameDir() const { return m_frames.path(); }
    std::string errors() const; // what it wrote to standard error so far
    std::string const& runDir() const { return m_run.path(); }
    // Names of the files in the frame directory (frames published and claimed).
    std::vector<std::string> frameFiles() const;

    // The device services' control calls, on a private bus connection of the test's own.
    void setFault(std::string const& method, std::string const& kind);
    void setApplications(int count);
    void setPin(int pin, int mode, int state);
    std::pair<int, int> pin(int pin); // mode and state
    void setCounters(uint32_t triggers, uint32_t results, uint32_t positive, uint32_t negative);

private:
    std::string readLine(int timeoutMs);

    TempDir m_frames{"kv-frames"};
    TempDir m_run{"kv-run"};
    ScopedEnv m_frameEnv{"ORV_FRAME_DIR", m_frames.path()};
    ScopedEnv m_runEnv{"ORV_IMAGER_RUN_DIR", m_run.path()};
    pid_t m_pid = -1;
    int m_out = -1;
    std::string m_pending;
    int m_exitCode = -1;
};

} // namespace orv::test
