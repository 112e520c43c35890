// Switches the device to another application; the status is the parameter service's own answer.
#pragma once

#include "core/VORNCommand.h"

namespace orv {

class IMirelConnector;
namespace Logger {
class RedisLogger;
}

class VORNSetApplication : public VORNCommand
{
public:
    VORNSetApplication(IMirelConnector* connector, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    [[maybe_unused]] Logger::RedisLogger& m_logger; // held like every command's; this one writes no entry
    IMirelConnector* m_connector; // may be null: every request then fails with the generic status
};

} // namespace orv
