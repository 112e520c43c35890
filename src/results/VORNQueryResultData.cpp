#include "results/VORNQueryResultData.h"
#include "core/TextField.h"

#include <cstdlib>
#include <cstring>
#include <exception>

#include "core/VornStatus.h"
#include "logger/RedisLogger.h"
#include "results/ResultKeys.h"
#include "results/ResultLookup.h"
#include "results/VORNResultManager.h"

using orv::Logger::RedisLogger;

namespace orv {
namespace {

// The handler of a key, by what the key names; the keys are the result lookup's.
VORNQueryResultData::Handler handlerOf(std::string const& key)
{
    switch (ResultLookup::kindOf(key)) {
    case ResultLookup::Kind::FrameData:
        return &VORNQueryResultData::readTmpFSData;
    case ResultLookup::Kind::JsonModel:
        return &VORNQueryResultData::handleJsonModel;
    case ResultLookup::Kind::JsonDiagnostic:
        return &VORNQueryResultData::handleJsonDiagnostic;
    case ResultLookup::Kind::AmplitudePicture:
        return &VORNQueryResultData::handleZ4ImageDataPNG;
    case ResultLookup::Kind::DiagnosticData: // a blob of formatted outputs only
    case ResultLookup::Kind::None:
        break;
    }
    return nullptr;
}

// The request's texts end at their NUL or at the end of their field, whichever comes first.
std::string field(char const* text, size_t capacity)
{
    return std::string(text, strnlen(text, capacity));
}

} // namespace

VORNQueryResultData::VORNQueryResultData(VORNResultManager& manager, RedisLogger& logger)
    : m_manager(manager), m_logger(logger)
{
    ResultLookup::kindOf(""); // the key table is built at load, before any request
}

VORNResultData_t* VORNQueryResultData::createResult(std::string name, VORNDataType_t type, int size,
                                                    const void* data)
{
    auto* record = static_cast<VORNResultData_t*>(malloc(sizeof(VORNResultData_t)));
    if (record == nullptr) {
        m_logger.log(RedisLogger::ERROR, "[VORN]%s(): malloc failed", "createResult");
        return nullptr;
    }
    // The whole record is zeroed, reserved bytes included, so nothing of the heap leaks to clients.
    memset(record, 0, sizeof *record);
    record->status = VornStatus::Success;
    copyTextField(record->name, sizeof record->name, name.c_str());
    record->type = type;
    record->size = static_cast<uint32_t>(size);
    record->data = data;
    return record;
}

DataBlock* VORNQueryResultData::execute(DataBlock const* request)
{
    if (request == nullptr || request->data == nullptr)
        return nullptr;
    auto* query = reinterpret_cast<VORNQueryProcessData_t*>(request->data);
    std::string const key = field(query->key, sizeof query->key);
    std::string const id = field(query->id, sizeof query->id);
    Handler const handler = handlerOf(key);
    if (handler == nullptr) {
        VORNResultData_t* record = createResult(key, VORN_DATA_NONE, 0, nullptr);
        if (record != nullptr)
            record->status = VornStatus::DataNotAvailable;
        return create_DataBlock(ReplyCode::QueryResultData, reinterpret_cast<unsigned char*>(record));
    }

    DataBlock* reply = nullptr;
    try {
        reply = (this->*handler)(query);
    } catch (std::exception const& e) {
        // A result id that is no number cannot number a derived chunk; nothing may leave the
        // plug-in as an exception, so the request gets no reply like any other failed derivation.
        m_logger.log(RedisLogger::ERROR, "%s: %s(%s): %s", "execute", key.c_str(), id.c_str(), e.what());
    }
    if (reply == nullptr) {
        m_logger.log(RedisLogger::ERROR, "%s: resultHandler: res == NULL", "execute");
        return nullptr;
    }
    m_logger.log(RedisLogger::DEBUG, "%s: resultHandler(%s, %s) called successfully", "execute", id.c_str(),
                 key.c_str());
    return reply;
}

DataBlock* VORNQueryResultData::replyWith(std::string const& name, VORNDataType_t type, int size,
                                          const void* data)
{
    VORNResultData_t* record = createResult(name, type, size, data);
    if (record == nullptr)
        return nullptr;
    DataBlock* block = create_DataBlock(ReplyCode::QueryResultData, reinterpret_cast<unsigned char*>(record));
    if (block == nullptr)
        free(record);
    return block;
}

DataBlock* VORNQueryResultData::readTmpFSData(VORNQueryProcessData_t* request)
{
    std::string const id = field(request->id, sizeof request->id);
    std::string const key = field(request->key, sizeof request->key);
    m_logger.log(RedisLogger::DEBUG, "%s: id %s, key %s", "readTmpFSData", id.c_str(), key.c_str());
    if (id.empty()) {
        m_logger.log(RedisLogger::ERROR, "%s: missing id ?!", "readTmpFSData");
        return nullptr;
    }
    if (key.empty()) {
        m_logger.log(RedisLogger::ERROR, "%s: missing key ?!", "readTmpFSData");
        return nullptr;
    }
    unsigned int size = 0;
    void const* data = m_manager.getTmpFSData(id, key, &size);
    if (data == nullptr)
        return nullptr;
    // KEPT: this handler alone answers even without a record: the block then carries no payload.
    VORNResultData_t* record = createResult(key, VORN_DATA_BINARY, static_cast<int>(size), data);
    return create_DataBlock(ReplyCode::QueryResultData, reinterpret_cast<unsigned char*>(record));
}

DataBlock* VORNQueryResultData::handleJsonModel(VORNQueryProcessData_t* request)
{
    std::string const id = field(request->id, sizeof request->id);
    // The key only for the log: printed within its field, not copied (the mask usually drops it).
    m_logger.log(RedisLogger::DEBUG, "%s: key %.*s, id %s", "handleJsonModel",
                 static_cast<int>(strnlen(request->key, sizeof request->key)), request->key, id.c_str());
    VORNResultManager::ResultData const* text = m_manager.getSerializedJsonModel(id);
    if (text == nullptr)
        return nullptr;
    return replyWith("result", VORN_DATA_JSON, text->size, text->data);
}

DataBlock* VORNQueryResultData::handleJsonDiagnostic(VORNQueryProcessData_t* request)
{
    std::string const id = field(request->id, sizeof request->id);
    // The key only for the log: printed within its field, not copied (the mask usually drops it).
    m_logger.log(RedisLogger::DEBUG, "%s: key %.*s, id %s", "handleJsonDiagnostic",
                 static_cast<int>(strnlen(request->key, sizeof request->key)), request->key, id.c_str());
    VORNResultManager::ResultData const* text = m_manager.getJsonDiagnostic(id);
    if (text == nullptr)
        return nullptr;
    return replyWith("result", VORN_DATA_JSON, text->size, text->data);
}

DataBlock* VORNQueryResultData::handleZ4ImageDataPNG(VORNQueryProcessData_t* request)
{
    std::string const id = field(request->id, sizeof request->id);
    m_logger.log(RedisLogger::DEBUG, "%s(%s)", "handleZ4ImageDataPNG", id.c_str());
    if (id.empty()) {
        m_logger.log(RedisLogger::ERROR, "%s: missing id ?!", "handleZ4ImageDataPNG");
        return nullptr;
    }
    VORNResultManager::ResultData const* png = m_manager.getZ4ImageDataPNG(id);
    if (png == nullptr)
        return nullptr;
    return replyWith(ResultKeys::AmplitudePicture, VORN_DATA_BINARY, png->size, png->data);
}

} // namespace orv
