#include "results/ResultIdReply.h"

#include <cstdlib>

#include "core/VORNCommand.h"
#include "core/VornStatus.h"

namespace orv {

int32_t* ResultIdReply::allocateStatus()
{
    return static_cast<int32_t*>(malloc(sizeof(int32_t)));
}

DataBlock* ResultIdReply::finish(int32_t* status, bool ok)
{
    *status = ok ? VornStatus::Success : VornStatus::GenericFailure;
    DataBlock* block =
        VORNCommand::create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(status));
    if (block == nullptr)
        free(status);
    return block;
}

} // namespace orv
