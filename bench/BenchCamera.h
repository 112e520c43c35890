// The camera side of a benchmark and the plug-in loaded in the benchmark's own process, as the host
// loads it: a private Redis, a frame directory the benchmark publishes into, and no bus (the
// benchmarks never reach the device's services).
#pragma once

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "PluginChild.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "core/ChunkHeader.h"
#include "core/CommandId.h"
#include "core/DataBlock.h"
#include "format/VORNFormatResults.h"
#include "results/ResultKeys.h"
#include "resultsync/FramePublisher.h"

namespace orv {
namespace bench {

// A chunk of 16-bit pixels behind its header, as the camera writes an image plane.
inline std::vector<unsigned char> imageChunk(unsigned width, unsigned height, unsigned seed = 13)
{
    std::vector<unsigned char> chunk(sizeof(ChunkHeader) + size_t(width) * height * 2);
    ChunkHeader header;
    header.chunkType = 103;
    header.chunkSize = static_cast<uint32_t>(chunk.size());
    header.width = width;
    header.height = height;
    header.pixelFormat = 2;
    memcpy(chunk.data(), &header, sizeof header);
    for (size_t i = 0; i < size_t(width) * height; ++i) {
        auto const pixel = static_cast<uint16_t>((i * seed) % 1000);
        memcpy(chunk.data() + sizeof header + 2 * i, &pixel, 2);
    }
    return chunk;
}

class BenchCamera
{
public:
    BenchCamera()
        : m_noBus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_dir.file("no-bus")),
          m_frameEnv("ORV_FRAME_DIR", m_frames.path()), m_publisher(16, m_frames.path())
    {
        m_library = dlopen(test::pluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_library == nullptr)
            throw std::runtime_error(dlerror());
        auto init = reinterpret_cast<void* (*)()>(dlsym(m_library, "VORN_init"));
        m_call = reinterpret_cast<DataBlock* (*)(void*, DataBlock*)>(dlsym(m_library, "VORN_handle_call"));
        m_handle = init();
    }

    // Publishes the next result: its hash in Redis (the model and the device values) and its frame.
    std::string publish(std::string const& model, std::vector<resultsync::FramePublisher::Item> const& items)
    {
        std::string const id = std::to_string(++m_lastId);
        m_redis.cache().command({"HSET", "result_" + id, "ModelResult", model, "DiagnosticData",
                                 "{\"temperatureIllu\": 41.2}", "TemperatureIllu", "41.2", "FrameDuration",
                                 "33000"});
        m_publisher.publish(id, items);
        return id;
    }

    // Publishes a result with the model and one 176x132 picture as its normalized amplitude and
    // distance images: what the result cycles read.
    std::string publishPictured(std::string const& model)
    {
        if (m_picture.empty())
            m_picture = imageChunk(176, 132);
        uint32_t const size = uint32_t(m_picture.size());
        return publish(model, {{orv::ResultKeys::NormalizedAmplitudeImage, m_picture.data(), size},
                               {orv::ResultKeys::DistanceImage, m_picture.data(), size}});
    }

    // A request of one command with a status word first in its reply; true when that word is 0.
    bool call(int command, void const* payload)
    {
        DataBlock* reply = send(command, payload);
        int32_t status = -1;
        if (reply != nullptr && reply->data != nullptr)
            memcpy(&status, reply->data, 4);
        test::LoadedPlugin::freeReply(reply, command);
        return status == 0;
    }

    bool acquire(std::string const& id) { return call(CommandId::AcquireResultId, id.c_str()); }
    bool free(std::string const& id) { return call(CommandId::FreeResultId, id.c_str()); }

    bool query(std::string const& key, std::string const& id)
    {
        char request[512] = {};
        memcpy(request, key.data(), key.size());
        memcpy(request + 256, id.data(), id.size());
        return call(CommandId::QueryResultData, request);
    }

    // A format-results request; the output's bytes, or an error when the request was not served.
    std::string format(std::string const& id, std::string const& json, int32_t busByteOrder = 0)
    {
        FormatResultsRequest request{};
        strncpy(request.resultId, id.c_str(), sizeof request.resultId - 1);
        request.json = json.data();
        request.jsonLength = static_cast<uint32_t>(json.size());
        request.busByteOrder = busByteOrder;
        DataBlock* reply = send(CommandId::FormatResults, &request);
        auto const* record = reply != nullptr ? reinterpret_cast<FormatResultsReply*>(reply->data) : nullptr;
        if (record == nullptr || record->hasData != 1) {
            test::LoadedPlugin::freeReply(reply, CommandId::FormatResults);
            throw std::runtime_error("the format request was not served");
        }
        std::string output(reinterpret_cast<char const*>(record->data), record->size);
        test::LoadedPlugin::freeReply(reply, CommandId::FormatResults);
        return output;
    }

    // Only the size: the benchmarks' timed loops do not copy the output once more.
    size_t formatSize(FormatResultsRequest const& request)
    {
        DataBlock* reply = send(CommandId::FormatResults, &request);
        size_t size = 0;
        if (reply != nullptr && reply->data != nullptr) {
            auto* record = reinterpret_cast<FormatResultsReply*>(reply->data);
            size = record->hasData == 1 ? record->size : 0;
        }
        test::LoadedPlugin::freeReply(reply, CommandId::FormatResults);
        return size;
    }

    test::RedisServer& redis() { return m_redis.cache(); }
    std::string frameDir() const { return m_frames.path(); }

private:
    DataBlock* send(int command, void const* payload)
    {
        DataBlock block;
        memset(&block, 0, sizeof block);
        block.command = command;
        block.data = static_cast<unsigned char*>(const_cast<void*>(payload));
        return m_call(m_handle, &block);
    }

    test::TempDir m_dir{"kv-bench"};
    test::TempDir m_frames{"kv-bench-frames", "/dev/shm"}; // tmpfs, as on the camera
    test::ScopedEnv m_noBus;
    test::ScopedEnv m_frameEnv;
    test::RedisEnvironment m_redis;
    resultsync::FramePublisher m_publisher;
    std::vector<unsigned char> m_picture;
    void* m_library = nullptr;
    void* m_handle = nullptr;
    DataBlock* (*m_call)(void*, DataBlock*) = nullptr;
    unsigned m_lastId = 0;
};

} // namespace bench
} // namespace orv
