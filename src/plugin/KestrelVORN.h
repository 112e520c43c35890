// The single plug-in object behind the host's handle: it owns the logger, the result manager and
// the device connector, and maps each command id to its command object.
#pragma once

#include <map>

#include "core/DataBlock.h"
#include "logger/RedisLogger.h"
#include "results/VORNResultManager.h"

namespace orv {
class VORNCommand;
class IMirelConnector;
} // namespace orv

class KestrelVORN
{
public:
    // Connects to Redis (and the bus) and fills the command table; throws when Redis is unreachable.
    KestrelVORN();
    ~KestrelVORN();

    KestrelVORN(KestrelVORN const&) = delete;
    KestrelVORN& operator=(KestrelVORN const&) = delete;

    // Runs the command for the request's id; null for an unsupported id (logged) or no reply.
    DataBlock* dispatch(DataBlock const* request);

    orv::Logger::RedisLogger& logger() { return m_logger; }

private:
    void addCommand(int id, orv::VORNCommand* command);

    // Member order is the destruction order's reverse: connector, result manager, logger, table.
    std::map<int, orv::VORNCommand*> m_commands;
    orv::Logger::RedisLogger m_logger;
    orv::VORNResultManager m_resultManager;
    orv::IMirelConnector* m_connector; // made with new, never deleted, like the commands that use it
};

// Plain ordered lookup of a command id; inserts nothing.
orv::VORNCommand* get_command(std::map<int, orv::VORNCommand*> const& commands, int id);
