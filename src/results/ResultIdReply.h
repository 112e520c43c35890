// The one-word status reply shared by the acquire and free commands.
#pragma once

#include "core/DataBlock.h"

namespace orv {

class ResultIdReply
{
public:
    // Null when the request or its payload is missing or memory is exhausted; otherwise the id
    // text is passed to action and its result becomes status 0 or the generic failure.
    template <typename Action> static DataBlock* run(DataBlock const* request, Action action);

private:
    static int32_t* allocateStatus();
    static DataBlock* finish(int32_t* status, bool ok);
};

} // namespace orv

#include <string>

template <typename Action> DataBlock* orv::ResultIdReply::run(DataBlock const* request, Action action)
{
    if (request == nullptr || request->data == nullptr)
        return nullptr;
    int32_t* status = allocateStatus();
    if (status == nullptr)
        return nullptr;
    std::string const id(reinterpret_cast<char const*>(request->data));
    return finish(status, action(id));
}
