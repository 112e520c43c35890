#include "device/IOMapping.h"

#include "ident/KSCapability.h"

namespace orv {

int IOMapping::getIOPin(int io)
{
    // The three-port board routes I/O 2 to pin 5 and I/O 3 to pin 4.
    if (ks_has_capability(KS_CAP_IO_THREE_PORTS)) {
        static int const threePorts[] = {3, 5, 4};
        return io >= 1 && io <= 3 ? threePorts[io - 1] : NoPin;
    }
    if (ks_has_capability(KS_CAP_IO_TWO_PORTS)) {
        static int const twoPorts[] = {0, 1};
        return io >= 1 && io <= 2 ? twoPorts[io - 1] : NoPin;
    }
    return NoPin;
}

} // namespace orv
