#include "results/VORNResultManager.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/mman.h>

#include <QStringList>

#include "core/ChunkHeader.h"
#include "core/Paths.h"
#include "god/God.h"
#include "logger/RedisLogger.h"
#include "results/AmplitudePicture.h"
#include "results/ResultKeys.h"
#include "results/ResultModelRedisPersister.h"

using orv::Logger::RedisLogger;

namespace orv {
namespace {

constexpr int FrameWaitMs = 1000;
// The derived buffers are kept under the keys clients ask for them by; the picture under its own.
constexpr char const* DiagnosticDataKey = ResultKeys::DiagnosticData;
constexpr char const* JsonDiagnosticKey = ResultKeys::JsonDiagnostic;
constexpr char const* JsonModelKey = ResultKeys::JsonModel;
constexpr char AmplitudePngKey[] = "normalized_amplitude_image.png";

// The id as std::stoul reads it on the camera, where unsigned long has 32 bits: an id beyond 32 bits
// is out of range on every host instead of being cut to another id, and a negative one wraps to 32
// bits ("-1" is 4294967295) as it does there.
uint32_t frameCountOf(const std::string& id)
{
    unsigned long const value = std::stoul(id, nullptr, 10);
    size_t const first = id.find_first_not_of(" \t\n\v\f\r");
    bool const negative = first != std::string::npos && id[first] == '-';
    unsigned long const magnitude = negative ? 0UL - value : value;
    if (magnitude >> 16 >> 16 != 0) // beyond 32 bits; written so that a 32-bit build sees no constant test
        throw std::out_of_range("stoul");
    return negative ? 0U - static_cast<uint32_t>(magnitude) : static_cast<uint32_t>(magnitude);
}

int32_t tenthsOf(QString const& value)
{
    return static_cast<int32_t>(value.toFloat() * 10.0f);
}

} // namespace

VORNResultManager::VORNResultManager(RedisLogger& logger) : resultsync::FrameClient(true), m_logger(logger)
{
    m_persister.reset(new ResultModelRedisPersister(QString::fromStdString(Paths::redisCacheSocket())));
}

// Buffers still registered are deliberately not given back: the host may still read them.
VORNResultManager::~VORNResultManager() = default;

bool VORNResultManager::acquire(const std::string& id)
{
    std::unique_ptr<resultsync::Frame> next = waitForFrame(FrameWaitMs);
    m_frame = std::move(next);
    if (!m_frame) {
        m_logger.log(RedisLogger::DEBUG, "%s(%s): rv: %s", "acquire", id.c_str(), "false");
        return false;
    }
    std::string const frameId = m_frame->getId();
    if (frameId == id) {
        m_logger.log(RedisLogger::DEBUG, "%s(%s): rv: %s", "acquire", id.c_str(), "true");
        return true;
    }
    // KEPT: the unexpected frame stays current: reads for the requested id fail, and releasing the
    // frame's own id gives it back.
    m_logger.log(RedisLogger::ERROR, "%s: unexpected dequeued element (%s), expected: %s", "acquire",
                 frameId.c_str(), id.c_str());
    m_logger.log(RedisLogger::DEBUG, "%s(%s): rv: %s", "acquire", id.c_str(), "false");
    return false;
}

void const* VORNResultManager::getTmpFSData(const std::string& id, const std::string& key, unsigned int* size)
{
    m_logger.log(RedisLogger::DEBUG, "%s: id %s, key %s", "getTmpFSData", id.c_str(), key.c_str());
    if (id.empty()) {
        m_logger.log(RedisLogger::ERROR, "%s: missing id ?!", "getTmpFSData");
        return nullptr;
    }
    if (!m_frame) {
        m_logger.log(RedisLogger::ERROR, "%s: no result acquired", "getTmpFSData");
        return nullptr;
    }
    std::string const frameId = m_frame->getId();
    if (frameId != id) {
        m_logger.log(RedisLogger::ERROR, "%s: currently acquired id %s does not match requested id %s",
                     "getTmpFSData", frameId.c_str(), id.c_str());
        return nullptr;
    }
    uint32_t frameSize = 0;
    void const* data = m_frame->getData(key, size != nullptr ? &frameSize : nullptr);
    if (size != nullptr)
        *size = frameSize;
    m_logger.log(RedisLogger::DEBUG, "%s: retrieved tmpfs data for key %s: addr %x size %d", "getTmpFSData",
                 key.c_str(), static_cast<unsigned int>(reinterpret_cast<uintptr_t>(data)),
                 size != nullptr ? static_cast<int>(*size) : -1);
    return data;
}

bool VORNResultManager::release(const std::string& id)
{
    m_logger.log(RedisLogger::DEBUG, "%s(%s)", "release", id.c_str());
    for (auto& entry : m_resMap) {
        ResultData const& buffer = entry.second;
        if (buffer.data == nullptr)
            continue;
        m_logger.log(RedisLogger::DEBUG, "%s(%s): unmap/free %s", "release", id.c_str(), entry.first.c_str());
        if (buffer.type == Mapped)
            munmap(buffer.data, static_cast<size_t>(buffer.size));
        else if (buffer.type == Heap)
            free(buffer.data);
    }
    m_logger.log(RedisLogger::DEBUG, "%s: Erasing m_resMap[%s]", "release", id.c_str());
    m_resMap.clear();
    if (m_frame && m_frame->getId() == id)
        m_frame.reset();
    m_redisResults.clear();
    return true;
}

void VORNResultManager::newResultData(const std::string& key, int size, void* data, MemoryType type)
{
    // An existing entry is overwritten without giving its buffer back: callers register a key
    // once per result, after looking it up.
    ResultData& entry = m_resMap[key];
    entry.data = data;
    entry.size = size;
    entry.type = type;
    m_logger.log(RedisLogger::DEBUG, "%s(%s, %d)", "newResultData", key.c_str(), size);
}

void VORNResultManager::fetchRedisResults(const std::string& id)
{
    m_redisResults.clear();
    QString const name = QLatin1String(ResultKeys::RedisResultPrefix) + QString::fromLatin1(id.c_str());
    QStringList fields;
    QStringList values;
    int const rc = god::getall(&name, &fields, &values);
    if (rc != 0) {
        m_logger.log(RedisLogger::ERROR, "%s: could not fetch Redis results for id %s (error %d)",
                     "fetchRedisResults", id.c_str(), rc);
        return;
    }
    for (int i = 0; i < fields.size() && i < values.size(); ++i)
        m_redisResults.insert(fields[i], values[i]);
}

QString VORNResultManager::getRedisResult(const std::string& id, const QString& field)
{
    // Not keyed by id: reads only happen between an acquire and its release.
    if (m_redisResults.isEmpty())
        fetchRedisResults(id);
    return m_redisResults.value(field);
}

ResultModel* VORNResultManager::getJsonModel(const std::string& id)
{
    auto it = m_jsonModels.find(id);
    if (it != m_jsonModels.end())
        return &it->second;
    m_jsonModels.clear();
    ResultModel& model = m_jsonModels[id];
    // A failed load leaves the empty model cached: the next call answers with it, and the
    // formatter reads an empty model as a result without content.
    if (!m_persister->get(QLatin1String(ResultKeys::RedisResultPrefix) + QString::fromStdString(id), model))
        return nullptr;
    return &model;
}

VORNResultManager::ResultData* VORNResultManager::findResultData(const std::string& key)
{
    auto it = m_resMap.find(key);
    return it != m_resMap.end() ? &it->second : nullptr;
}

VORNResultManager::ResultData* VORNResultManager::getDiagnosticData(const std::string& id)
{
    m_logger.log(RedisLogger::DEBUG, "%s: id: %s", "getDiagnosticData", id.c_str());
    if (ResultData* known = findResultData(DiagnosticDataKey))
        return known;
    uint32_t const frameCount = frameCountOf(id);
    int const size = static_cast<int>(sizeof(ChunkHeader) + 5 * sizeof(int32_t));
    auto* buffer = static_cast<unsigned char*>(calloc(1, static_cast<size_t>(size)));
    if (buffer == nullptr) {
        m_logger.log(RedisLogger::ERROR, "[VORN] %s(): unable to allocate memory for frame %s",
                     "getDiagnosticData", id.c_str());
        return nullptr;
    }
    ChunkHeader header;
    header.chunkType = ChunkType::DiagnosticRecord;
    header.chunkSize = static_cast<uint32_t>(size);
    header.width = 5;
    header.height = 1;
    header.pixelFormat = 4;
    header.frameCount = frameCount;
    memcpy(buffer, &header, sizeof header);

    if (m_redisResults.isEmpty())
        fetchRedisResults(id);
    int32_t const values[5] = {
        tenthsOf(getRedisResult(id, "TemperatureIllu")),
        tenthsOf(getRedisResult(id, "TemperatureFrontend1")),
        tenthsOf(getRedisResult(id, "TemperatureFrontend2")),
        32767, // fixed by the record's definition: the camera has no source for this value
        static_cast<int32_t>(getRedisResult(id, "FrameDuration").toUInt() / 1000),
    };
    memcpy(buffer + sizeof header, values, sizeof values);
    newResultData(DiagnosticDataKey, size, buffer, Heap);
    return findResultData(DiagnosticDataKey);
}

VORNResultManager::ResultData*
VORNResultManager::registerTextChunk(const std::string& key, char const* operation, const std::string& id,
                                     unsigned int chunkType, QByteArray const& text)
{
    uint32_t const frameCount = frameCountOf(id);
    size_t const size = sizeof(ChunkHeader) + static_cast<size_t>(text.size());
    auto* buffer = static_cast<unsigned char*>(calloc(1, size));
    if (buffer == nullptr) {
        m_logger.log(RedisLogger::ERROR, "[VORN] %s(): unable to allocate memory for frame %s", operation,
                     id.c_str());
        return nullptr;
    }
    ChunkHeader header;
    header.chunkType = chunkType;
    header.chunkSize = static_cast<uint32_t>(size);
    header.width = static_cast<uint32_t>(text.size());
    header.height = 1;
    header.pixelFormat = 0;
    header.frameCount = frameCount;
    memcpy(buffer, &header, sizeof header);
    memcpy(buffer + sizeof header, text.constData(), static_cast<size_t>(text.size()));
    newResultData(key, static_cast<int>(size), buffer, Heap);
    return findResultData(key);
}

VORNResultManager::ResultData* VORNResultManager::getJsonDiagnostic(const std::string& id)
{
    // KEPT: unlike the other derived data, a second request within one result is refused.
    if (findResultData(JsonDiagnosticKey) != nullptr)
        return nullptr;
    QByteArray const text = getRedisResult(id, ResultKeys::DiagnosticDataField).toUtf8();
    return registerTextChunk(JsonDiagnosticKey, "getJsonDiagnostic", id, ChunkType::DiagnosticJson, text);
}

VORNResultManager::ResultData* VORNResultManager::getSerializedJsonModel(const std::string& id)
{
    m_logger.log(RedisLogger::DEBUG, "%s: id: %s", "getSerializedJsonModel", id.c_str());
    if (ResultData* known = findResultData(JsonModelKey))
        return known;
    ResultModel* model = getJsonModel(id);
    if (model == nullptr) {
        m_logger.log(RedisLogger::ERROR, "%s: getJsonModel(%s): nullptr", "getSerializedJsonModel",
                     id.c_str());
        return nullptr;
    }
    return registerTextChunk(JsonModelKey, "getSerializedJsonModel", id, ChunkType::JsonModel,
                             model->serialize());
}

VORNResultManager::ResultData* VORNResultManager::getZ4ImageDataPNG(const std::string& id)
{
    m_logger.log(RedisLogger::DEBUG, "%s(%s)", "getZ4ImageDataPNG", id.c_str());
    if (id.empty()) {
        m_logger.log(RedisLogger::ERROR, "%s: missing id ?!", "getZ4ImageDataPNG");
        return nullptr;
    }
    if (ResultData* known = findResultData(AmplitudePngKey))
        return known;
    createZ4ImageDataPNG(id);
    // After a failed creation this is a default entry (no buffer), so the caller gets an empty
    // record rather than none.
    return &m_resMap[AmplitudePngKey];
}

void VORNResultManager::createZ4ImageDataPNG(const std::string& id)
{
    unsigned int size = 0;
    void const* chunk = getTmpFSData(id, ResultKeys::NormalizedAmplitudeImage, &size);
    if (chunk == nullptr || size < sizeof(ChunkHeader))
        return;
    ChunkHeader source;
    memcpy(&source, chunk, sizeof source);
    QByteArray const png =
        AmplitudePicture::png(chunk, size, getRedisResult(id, ResultKeys::ModelResultField).toUtf8());
    if (png.isEmpty())
        return;
    size_t const total = sizeof(ChunkHeader) + static_cast<size_t>(png.size());
    auto* buffer = static_cast<unsigned char*>(malloc(total));
    if (buffer == nullptr) {
        m_logger.log(RedisLogger::ERROR, "[VORN] %s(): unable to allocate memory for frame %s",
                     "createZ4ImageDataPNG", id.c_str());
        return;
    }
    // KEPT: width holds the source's pixel count and the frame count is 1: that is how clients of this
    // chunk read it.
    ChunkHeader header;
    header.chunkType = ChunkType::PngPicture;
    header.chunkSize = static_cast<uint32_t>(total);
    header.width = source.width * source.height;
    header.height = 1;
    header.pixelFormat = 0;
    header.frameCount = 1;
    memcpy(buffer, &header, sizeof header);
    memcpy(buffer + sizeof header, png.constData(), static_cast<size_t>(png.size()));
    newResultData(AmplitudePngKey, static_cast<int>(total), buffer, Heap);
}

} // namespace orv
