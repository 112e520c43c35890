// Frees a reply as the host does: the buffer a statistics or format-results record points to, then
// the payload and the block.
#pragma once

#include <cstdlib>

#include "core/DataBlock.h"
#include "device/DeviceReplies.h"
#include "format/VORNFormatResults.h"

namespace orv::test {

inline void releaseReply(DataBlock* reply, int command)
{
    if (reply != nullptr && reply->data != nullptr && command == 22)
        free(reinterpret_cast<VORNStatisticReply*>(reply->data)->value);
    if (reply != nullptr && reply->data != nullptr && command == 26)
        free(reinterpret_cast<FormatResultsReply*>(reply->data)->data);
    if (reply != nullptr)
        free(reply->data);
    free(reply);
}

} // namespace orv::test
