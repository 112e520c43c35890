#include "FrameProducer.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include <hiredis/hiredis.h>

#include "ResultDocument.h"
#include "core/Paths.h"
#include "results/ResultKeys.h"
#include "resultsync/FrameDirectory.h"
#include "resultsync/FramePublisher.h"

namespace camsim {
namespace {

bool writeFile(std::string const& path, std::vector<unsigned char> const& bytes)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    bool ok = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    close(fd);
    return ok;
}

std::string text(double value)
{
    char buffer[32];
    snprintf(buffer, sizeof buffer, "%.2f", value);
    return buffer;
}

uint64_t nowUs()
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

} // namespace

FrameProducer::FrameProducer(FrameProducerOptions const& options)
    : m_options(options), m_scene(options.width, options.height), m_layout(options.roisPerModel),
      m_publisher(new orv::resultsync::FramePublisher(options.ringSize)), m_runDir(orv::Paths::imagerRunDir())
{
    std::string why;
    if (!connectRedis(why))
        throw std::runtime_error(why);
    if (!orv::resultsync::FrameDirectory::ensure(m_runDir))
        fprintf(stderr, "camsim: cannot create %s: %s\n", m_runDir.c_str(), strerror(errno));
}

FrameProducer::~FrameProducer()
{
    stopFreeRunning();
    std::lock_guard<std::mutex> lock(m_mutex);
    while (!m_live.empty()) {
        forget(m_live.front());
        m_live.pop_front();
    }
    m_publisher->removeAll();
    // Only when empty: directories that hold files of others stay.
    rmdir(m_publisher->directory().c_str());
    rmdir(m_runDir.c_str());
    redisFree(m_redis);
}

uint32_t FrameProducer::produce()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    uint32_t const id = m_nextId++;
    ResultDocument const document(m_scene, m_layout, id);
    // Hash and masks first: a client that sees the frame finds everything else of the result.
    if (!storeResult(id, document.modelJson()))
        return 0;
    writeRoiMasks(id);
    m_live.push_back(id);
    while (m_live.size() > 2 * m_options.ringSize) {
        forget(m_live.front());
        m_live.pop_front();
    }

    std::vector<Image> const images = m_scene.render(id, nowUs());
    std::vector<orv::resultsync::FramePublisher::Item> items;
    for (Image const& image : images)
        items.push_back({image.key, image.data.data(), static_cast<uint32_t>(image.data.size())});
    if (!m_publisher->publish(std::to_string(id), items))
        return 0;
    ++m_produced;
    return id;
}

bool FrameProducer::connectRedis(std::string& why)
{
    redisFree(m_redis);
    std::string const socket = orv::Paths::redisCacheSocket();
    m_redis = redisConnectUnix(socket.c_str());
    if (m_redis != nullptr && m_redis->err == 0)
        return true;
    why = "cannot reach Redis at " + socket + ": " + (m_redis != nullptr ? m_redis->errstr : "no memory");
    redisFree(m_redis);
    m_redis = nullptr;
    return false;
}

bool FrameProducer::storeResult(uint32_t id, std::string const& model)
{
    // A Redis that went away (and maybe came back): connect again before every result until it
    // answers; meanwhile results are not published, and each says why.
    std::string why;
    if ((m_redis == nullptr || m_redis->err != 0) && !connectRedis(why)) {
        fprintf(stderr, "camsim: result %u not published: %s\n", id, why.c_str());
        return false;
    }
    ResultDocument const document(m_scene, m_layout, id);
    std::string const key = orv::ResultKeys::RedisResultPrefix + std::to_string(id);
    std::vector<std::string> args = {"HSET",
                                     key,
                                     orv::ResultKeys::ModelResultField,
                                     model,
                                     orv::ResultKeys::DiagnosticDataField,
                                     document.diagnosticJson(),
                                     "TemperatureIllu",
                                     text(document.temperatureIllu()),
                                     "TemperatureFrontend1",
                                     text(document.temperatureFrontend(1)),
                                     "TemperatureFrontend2",
                                     text(document.temperatureFrontend(2)),
                                     "FrameDuration",
                                     std::to_string(document.frameDurationUs())};
    for (int i = 1; i <= 3; ++i) {
        args.push_back("ExposureTime" + std::to_string(i));
        args.push_back(std::to_string(document.exposureTimeUs(i)));
    }
    std::vector<char const*> argv;
    std::vector<size_t> lengths;
    for (std::string const& a : args) {
        argv.push_back(a.data());
        lengths.push_back(a.size());
    }
    auto* reply = static_cast<redisReply*>(
        redisCommandArgv(m_redis, static_cast<int>(argv.size()), argv.data(), lengths.data()));
    // A connection is found broken only when it is used: a Redis that was restarted gets the result
    // on a new one, rather than the result being lost.
    if (reply == nullptr && connectRedis(why))
        reply = static_cast<redisReply*>(
            redisCommandArgv(m_redis, static_cast<int>(argv.size()), argv.data(), lengths.data()));
    bool const ok = reply != nullptr && reply->type == REDIS_REPLY_INTEGER;
    if (!ok)
        fprintf(stderr, "camsim: result %u not published: storing %s failed: %s\n", id, key.c_str(),
                reply != nullptr && reply->str != nullptr ? reply->str
                : m_redis != nullptr                      ? m_redis->errstr
                                                          : why.c_str());
    freeReplyObject(reply);
    return ok;
}

void FrameProducer::writeRoiMasks(uint32_t id)
{
    std::string const dir = m_runDir + "/" + std::to_string(id);
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
        fprintf(stderr, "camsim: cannot create %s: %s\n", dir.c_str(), strerror(errno));
        return;
    }
    for (RoiMask const& mask : ResultDocument(m_scene, m_layout, id).masks()) {
        std::string const path = dir + "/" + orv::ResultKeys::RoiMaskPrefix + std::to_string(mask.modelId);
        if (!writeFile(path, mask.pixels))
            fprintf(stderr, "camsim: cannot write %s: %s\n", path.c_str(), strerror(errno));
    }
}

void FrameProducer::forget(uint32_t id)
{
    std::string const key = orv::ResultKeys::RedisResultPrefix + std::to_string(id);
    if (m_redis != nullptr && m_redis->err == 0)
        freeReplyObject(redisCommand(m_redis, "DEL %s", key.c_str()));
    std::string const dir = m_runDir + "/" + std::to_string(id);
    for (int model = 1; model <= m_layout.modelCount(); ++model)
        unlink((dir + "/" + orv::ResultKeys::RoiMaskPrefix + std::to_string(model)).c_str());
    rmdir(dir.c_str());
}

void FrameProducer::startFreeRunning(double hz)
{
    if (hz <= 0)
        return;
    std::lock_guard<std::mutex> lock(m_runMutex);
    if (m_running)
        return;
    m_running = true;
    auto const period = std::chrono::microseconds(static_cast<long long>(1e6 / hz));
    m_runner = std::thread([this, period] {
        auto next = std::chrono::steady_clock::now();
        std::unique_lock<std::mutex> lock(m_runMutex);
        while (m_running) {
            lock.unlock();
            produce();
            lock.lock();
            next += period;
            m_runWake.wait_until(lock, next, [this] { return !m_running; });
        }
    });
}

void FrameProducer::stopFreeRunning()
{
    {
        std::lock_guard<std::mutex> lock(m_runMutex);
        m_running = false;
    }
    m_runWake.notify_all();
    if (m_runner.joinable())
        m_runner.join();
}

} // namespace camsim
