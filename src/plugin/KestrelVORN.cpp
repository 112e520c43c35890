#include "plugin/KestrelVORN.h"

#include <string>

#include "core/CommandId.h"
#include "core/Paths.h"
#include "core/VORNCommand.h"
#include "device/MirelDBusConnector.h"
#include "device/VORNAsyncTrigger.h"
#include "device/VORNGetApplicationList.h"
#include "device/VORNGetIO.h"
#include "device/VORNQueryStatisticInfo.h"
#include "device/VORNSetApplication.h"
#include "device/VORNSetIO.h"
#include "device/VORNSyncTrigger.h"
#include "format/VORNFormatResults.h"
#include "format/VornFormatterJsonValidator.h"
#include "info/VORNQueryDeviceInfo.h"
#include "results/VORNAcquireResultID.h"
#include "results/VORNFreeRequestID.h"
#include "results/VORNQueryResultData.h"

using orv::Logger::RedisLogger;
namespace CommandId = orv::CommandId;

KestrelVORN::KestrelVORN()
    : m_logger("KSCOM", orv::Paths::redisCacheSocket().c_str(), "LOG:ENTRIES", true),
      m_resultManager(m_logger), m_connector(new orv::MirelDBusConnector(m_logger))
{
    // Commands are added in the order of the protocol's command table; command objects are never
    // deleted, only the table's nodes.
    addCommand(CommandId::QueryDeviceInfo, new orv::VORNQueryDeviceInfo(m_connector, m_logger));
    addCommand(CommandId::QueryResultData, new orv::VORNQueryResultData(m_resultManager, m_logger));
    addCommand(CommandId::AcquireResultId, new orv::VORNAcquireResultID(m_resultManager, m_logger));
    addCommand(CommandId::FreeResultId, new orv::VORNFreeRequestID(m_resultManager, m_logger));
    addCommand(CommandId::AsyncTrigger, new orv::VORNAsyncTrigger(m_connector, m_logger));
    addCommand(CommandId::SyncTrigger, new orv::VORNSyncTrigger(m_connector, m_logger));
    addCommand(CommandId::GetIO, new orv::VORNGetIO(m_connector, m_logger));
    addCommand(CommandId::SetIO, new orv::VORNSetIO(m_connector, m_logger));
    addCommand(CommandId::GetApplicationList, new orv::VORNGetApplicationList(m_connector, m_logger));
    addCommand(CommandId::SetApplication, new orv::VORNSetApplication(m_connector, m_logger));
    addCommand(CommandId::QueryStatisticInfo, new orv::VORNQueryStatisticInfo(m_connector, m_logger));
    addCommand(CommandId::FormatResults, new orv::VORNFormatResults(m_resultManager, m_logger));
    addCommand(CommandId::ValidateFormat, new orv::VornFormatterJsonValidator(m_logger));
}

KestrelVORN::~KestrelVORN() = default;

void KestrelVORN::addCommand(int id, orv::VORNCommand* command)
{
    m_commands.insert(std::make_pair(id, command));
}

DataBlock* KestrelVORN::dispatch(DataBlock const* request)
{
    orv::VORNCommand* command = get_command(m_commands, request->command);
    if (command != nullptr)
        return command->execute(request);

    std::string const text = "[VORN] unsupported command given: " + std::to_string(request->command);
    m_logger.log(RedisLogger::ERROR, "%s", text.c_str());
    return nullptr;
}

orv::VORNCommand* get_command(std::map<int, orv::VORNCommand*> const& commands, int id)
{
    auto it = commands.lower_bound(id);
    if (it == commands.end() || it->first != id)
        return nullptr;
    return it->second;
}
