// Hands out data of the acquired result by key: frame data in place, derived chunks from the
// result manager. The reply record names the data, its type, size and address.
#pragma once

#include <string>

#include "core/VORNCommand.h"
#include "results/VORNResultRecords.h"

namespace orv {

class VORNResultManager;
namespace Logger {
class RedisLogger;
}

class VORNQueryResultData : public VORNCommand
{
public:
    using Handler = DataBlock* (VORNQueryResultData::*)(VORNQueryProcessData_t*);

    VORNQueryResultData(VORNResultManager& manager, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

    // A record with status 0, or null (logged) when memory is exhausted.
    VORNResultData_t* createResult(std::string name, VORNDataType_t type, int size, const void* data);

    DataBlock* readTmpFSData(VORNQueryProcessData_t* request);
    DataBlock* handleJsonModel(VORNQueryProcessData_t* request);
    DataBlock* handleJsonDiagnostic(VORNQueryProcessData_t* request);
    DataBlock* handleZ4ImageDataPNG(VORNQueryProcessData_t* request);

private:
    DataBlock* replyWith(std::string const& name, VORNDataType_t type, int size, const void* data);

    VORNResultManager& m_manager;
    Logger::RedisLogger& m_logger;
};

} // namespace orv
