// Translates the protocol's I/O numbers into the device's pin numbers; the pin layout depends on
// which I/O board the device has.
#pragma once

namespace orv {

class IOMapping
{
public:
    static constexpr int NoPin = 8; // the device has no such I/O

    virtual ~IOMapping() = default;
    static int getIOPin(int io);
};

} // namespace orv
