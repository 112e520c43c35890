// Gives back everything held for a result id: derived buffers, the frame, the cached fields.
#pragma once

#include "core/VORNCommand.h"

namespace orv {

class VORNResultManager;
namespace Logger {
class RedisLogger;
}

class VORNFreeRequestID : public VORNCommand
{
public:
    VORNFreeRequestID(VORNResultManager& manager, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    VORNResultManager& m_manager;
    [[maybe_unused]] Logger::RedisLogger& m_logger; // held like every command's; this one writes no entry
};

} // namespace orv
