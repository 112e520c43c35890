#include "device/VORNSetIO.h"

#include <cstdlib>
#include <cstring>

#include "core/VornStatus.h"
#include "device/DeviceReplies.h"
#include "device/IMirelConnector.h"
#include "device/IOMapping.h"

namespace orv {

VORNSetIO::VORNSetIO(IMirelConnector* connector, Logger::RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{}

DataBlock* VORNSetIO::execute(DataBlock const* request)
{
    auto* status = static_cast<int32_t*>(malloc(sizeof(int32_t)));
    if (status != nullptr) {
        *status = VornStatus::GenericFailure;
        if (request != nullptr && request->data != nullptr)
            *status = setPin(request->data);
    }
    return create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(status));
}

int32_t VORNSetIO::setPin(unsigned char const* data)
{
    VORNSetIORequest args;
    memcpy(&args, data, sizeof args);
    int const pin = IOMapping::getIOPin(args.io);
    if (pin == IOMapping::NoPin)
        return VornStatus::InvalidIONumber;
    if (m_connector == nullptr)
        return VornStatus::GenericFailure;
    int mode = 0;
    if (!m_connector->getIOMode(pin, mode))
        return VornStatus::DeviceFailure;
    // An input pin is never driven, whatever the host asks.
    if (mode != IO_MODE_OUTPUT)
        return VornStatus::PinNotInOutputMode;
    return m_connector->setIO(pin, args.state) ? VornStatus::Success : VornStatus::DeviceFailure;
}

} // namespace orv
