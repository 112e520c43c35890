// Reads the state of one of the device's I/Os, addressed by its protocol I/O number.
#pragma once

#include "core/VORNCommand.h"

namespace orv {

class IMirelConnector;
struct VORNGetIOReply;
namespace Logger {
class RedisLogger;
}

class VORNGetIO : public VORNCommand
{
public:
    VORNGetIO(IMirelConnector* connector, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    void fill(VORNGetIOReply* reply, DataBlock const* request);

    [[maybe_unused]] Logger::RedisLogger& m_logger; // held like every command's; this one writes no entry
    IMirelConnector* m_connector; // may be null: every request then fails with the generic status
};

} // namespace orv
