// Makes the next result of the camera the current one, if it carries the id the client asks for.
#pragma once

#include "core/VORNCommand.h"

namespace orv {

class VORNResultManager;
namespace Logger {
class RedisLogger;
}

class VORNAcquireResultID : public VORNCommand
{
public:
    VORNAcquireResultID(VORNResultManager& manager, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    VORNResultManager& m_manager;
    [[maybe_unused]] Logger::RedisLogger& m_logger; // held like every command's; this one writes no entry
};

} // namespace orv
