// Answers whether a client's output-format description is one the format-results command can
// serve, by checking it against the installed format schema.
#pragma once

#include "core/VORNCommand.h"

namespace orv {

namespace Logger {
class RedisLogger;
}

class VornFormatterJsonValidator : public VORNCommand
{
public:
    explicit VornFormatterJsonValidator(Logger::RedisLogger& logger);

    // The request payload is the description as NUL-terminated text; the reply a 4-byte status.
    DataBlock* execute(DataBlock const* request) override;

private:
    Logger::RedisLogger& m_logger;
};

} // namespace orv
