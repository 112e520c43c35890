// Answers one counter of the imager's decoding statistics in the representation the host asks for.
#pragma once

#include "core/VORNCommand.h"

namespace orv {

class IMirelConnector;
struct VORNStatisticReply;
namespace Logger {
class RedisLogger;
}

class VORNQueryStatisticInfo : public VORNCommand
{
public:
    VORNQueryStatisticInfo(IMirelConnector* connector, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

private:
    void fill(VORNStatisticReply* reply, unsigned char const* data);

    Logger::RedisLogger& m_logger;
    IMirelConnector* m_connector; // may be null: every request then fails with the generic status
};

} // namespace orv
