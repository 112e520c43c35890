#include "core/KestrelVORN.h"

#include <string>

#include "core/Paths.h"
#include "core/VORNCommand.h"

using orv::Logger::RedisLogger;

KestrelVORN::KestrelVORN() : m_logger("KSCOM", orv::Paths::redisCacheSocket().c_str(), "LOG:ENTRIES", true)
{
    // Commands are added in the order of the protocol's command table; command objects are never
    // deleted, only the table's nodes.
    // [20 device info]
    // [2 4 5 result ids]
    // [9 10 12 11 14 17 22 device commands]
    // [26 27 formatting]
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
