// Produces the simulated camera's results the way its processing side does: for each result the
// frame with the images, the Redis hash "result_<id>" with the result model and the diagnostic
// fields, and one ROI mask file per model. Removes everything it made when it goes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RoiLayout.h"
#include "SyntheticScene.h"

struct redisContext;

namespace orv {
namespace resultsync {
class FramePublisher;
}
} // namespace orv

namespace camsim {

struct FrameProducerOptions
{
    unsigned int width = 176;
    unsigned int height = 132;
    unsigned int ringSize = 8; // frames kept in the frame directory
    std::vector<int> roisPerModel = {4, 5};
};

class FrameProducer
{
public:
    // Throws std::runtime_error when the Redis cache cannot be reached.
    explicit FrameProducer(FrameProducerOptions const& options);
    ~FrameProducer();

    FrameProducer(FrameProducer const&) = delete;
    FrameProducer& operator=(FrameProducer const&) = delete;

    // Publishes one result and returns its id, or 0 when it could not be published. Safe to call
    // from several threads (the trigger of the device services, the free-running thread).
    uint32_t produce();

    // Produces at `hz` results per second on a thread of its own until stopFreeRunning().
    void startFreeRunning(double hz);
    void stopFreeRunning();

    uint32_t produced() const { return m_produced; }

private:
    bool storeResult(uint32_t id, std::string const& model);
    // (Re)connects to the cache; false with the reason when it does not answer.
    bool connectRedis(std::string& why);
    void writeRoiMasks(uint32_t id);
    void forget(uint32_t id);

    FrameProducerOptions m_options;
    SyntheticScene m_scene;
    RoiLayout m_layout;
    std::unique_ptr<orv::resultsync::FramePublisher> m_publisher;
    std::string m_runDir;

    std::mutex m_mutex;
    redisContext* m_redis = nullptr;
    uint32_t m_nextId = 1;
    std::deque<uint32_t> m_live; // results whose hash and masks still exist, oldest first
    std::atomic<uint32_t> m_produced{0};

    std::mutex m_runMutex;
    std::condition_variable m_runWake;
    bool m_running = false;
    std::thread m_runner;
};

} // namespace camsim
