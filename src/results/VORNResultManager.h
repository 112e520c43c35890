// The plug-in's single gateway to the camera's per-frame results: frame data by key, the fields of
// the result's Redis hash, its JSON model, and the data derived from them. It owns every buffer it
// hands out until the result is released.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <QMap>
#include <QString>

#include "results/ResultModel.h"
#include "resultsync/FrameClient.h"

namespace orv {

class ResultModelRedisPersister;
namespace Logger {
class RedisLogger;
}

class VORNResultManager : public resultsync::FrameClient
{
public:
    enum MemoryType
    {
        Mapped = 0, // given back with munmap. KEPT: no buffer of today's is mapped
        Heap = 1,   // given back with free
    };

    struct ResultData
    {
        void* data = nullptr;
        int size = 0;
        MemoryType type = static_cast<MemoryType>(3); // never given back
    };

    // Throws when the Redis cache cannot be reached (from the persister).
    explicit VORNResultManager(Logger::RedisLogger& logger);
    ~VORNResultManager() override;

    // Dequeues the next frame (waiting up to 1000 ms) and tells whether it is the one asked for.
    bool acquire(const std::string& id);
    // Frees every derived buffer, the frame when its id matches, and the Redis field cache.
    bool release(const std::string& id);
    // Address of the key's data inside the acquired frame (not a copy), or null.
    void const* getTmpFSData(const std::string& id, const std::string& key, unsigned int* size);
    // Takes ownership of the buffer until the next release.
    void newResultData(const std::string& key, int size, void* data, MemoryType type);

    void fetchRedisResults(const std::string& id);
    QString getRedisResult(const std::string& id, const QString& field);
    ResultModel* getJsonModel(const std::string& id);

    // Derived chunks, built once per result and kept until release. The ones that number the
    // chunk by the result id throw std::invalid_argument or std::out_of_range for an id that is
    // not a decimal number.
    ResultData* getDiagnosticData(const std::string& id);
    ResultData* getJsonDiagnostic(const std::string& id);
    ResultData* getSerializedJsonModel(const std::string& id);
    ResultData* getZ4ImageDataPNG(const std::string& id);
    void createZ4ImageDataPNG(const std::string& id);

private:
    ResultData* findResultData(const std::string& key);
    ResultData* registerTextChunk(const std::string& key, char const* operation, const std::string& id,
                                  unsigned int chunkType, QByteArray const& text);

    std::unique_ptr<resultsync::Frame> m_frame;
    std::map<std::string, ResultData> m_resMap;
    QMap<QString, QString> m_redisResults;
    std::unique_ptr<ResultModelRedisPersister> m_persister;
    std::map<std::string, ResultModel> m_jsonModels;
    Logger::RedisLogger& m_logger;
};

} // namespace orv
