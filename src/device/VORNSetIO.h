// Sets one of the device's I/Os, but only when its pin is configured as an output.
#pragma once

#include <cstdint>

#include "core/VORNCommand.h"

namespace orv {

class IMirelConnector;
namespace Logger {
class RedisLogger;
}

class VORNSetIO : public VORNCommand
{
public:
    VORNSetIO(IMirelConnector* connector, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    int32_t setPin(unsigned char const* data);

    [[maybe_unused]] Logger::RedisLogger& m_logger; // held like every command's; this one writes no entry
    IMirelConnector* m_connector; // may be null: every request then fails with the generic status
};

} // namespace orv
