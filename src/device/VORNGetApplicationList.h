// Lists the device's applications and which one is active (at most 32 indices).
#pragma once

#include "core/VORNCommand.h"

namespace orv {

class IMirelConnector;
namespace Logger {
class RedisLogger;
}

class VORNGetApplicationList : public VORNCommand
{
public:
    VORNGetApplicationList(IMirelConnector* connector, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    [[maybe_unused]] Logger::RedisLogger& m_logger; // held like every command's; this one writes no entry
    IMirelConnector* m_connector; // may be null: every request then fails with the generic status
};

} // namespace orv
