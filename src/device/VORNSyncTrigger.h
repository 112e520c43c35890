// The synchronous trigger: answers exactly like the asynchronous one and, like it, does not wait
// for the image.
#pragma once

#include "device/VORNAsyncTrigger.h"

namespace orv {

class VORNSyncTrigger : public VORNAsyncTrigger
{
public:
    using VORNAsyncTrigger::VORNAsyncTrigger;
    ~VORNSyncTrigger() override = default;
};

} // namespace orv
