#include "device/VORNGetIO.h"

#include <cstdlib>
#include <cstring>

#include "core/VornStatus.h"
#include "device/DeviceReplies.h"
#include "device/IMirelConnector.h"
#include "device/IOMapping.h"

namespace orv {

VORNGetIO::VORNGetIO(IMirelConnector* connector, Logger::RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{}

DataBlock* VORNGetIO::execute(DataBlock const* request)
{
    auto* reply = static_cast<VORNGetIOReply*>(malloc(sizeof(VORNGetIOReply)));
    if (reply != nullptr)
        fill(reply, request);
    return create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(reply));
}

void VORNGetIO::fill(VORNGetIOReply* reply, DataBlock const* request)
{
    memset(reply, 0, sizeof *reply);
    reply->status = VornStatus::GenericFailure;
    if (request == nullptr || request->data == nullptr)
        return;
    memcpy(&reply->io, request->data, sizeof reply->io);
    int const pin = IOMapping::getIOPin(reply->io);
    if (pin == IOMapping::NoPin) {
        reply->status = VornStatus::InvalidIONumber;
        return;
    }
    if (m_connector == nullptr)
        return;
    int state = 0;
    if (m_connector->getIO(pin, state)) {
        reply->state = state;
        reply->status = VornStatus::Success;
    } else {
        reply->status = VornStatus::DeviceFailure;
    }
}

} // namespace orv
