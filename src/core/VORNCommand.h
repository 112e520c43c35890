// Abstract base of every protocol command: one request block in, one newly made reply block out.
#pragma once

#include "core/DataBlock.h"

namespace orv {

class VORNCommand
{
public:
    virtual ~VORNCommand() = default;

    // Returns the reply block the host then owns, or null where the command gives no reply.
    virtual DataBlock* execute(DataBlock const* request) = 0;

    // The only maker of blocks: a zeroed 36-byte block with the given code and payload, or null
    // (with "malloc(DataBlock)" on standard error) when memory is exhausted. The payload is not
    // freed in that case.
    static DataBlock* create_DataBlock(int command, unsigned char* data);
};

} // namespace orv
