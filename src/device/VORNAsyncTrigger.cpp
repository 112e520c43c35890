#include "device/VORNAsyncTrigger.h"

#include <cstdint>
#include <cstdlib>

#include "core/VornStatus.h"
#include "device/IMirelConnector.h"

namespace orv {

VORNAsyncTrigger::VORNAsyncTrigger(IMirelConnector* connector, Logger::RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{}

DataBlock* VORNAsyncTrigger::execute(DataBlock const*)
{
    auto* status = static_cast<int32_t*>(malloc(sizeof(int32_t)));
    if (status == nullptr)
        return create_DataBlock(ReplyCode::Default, nullptr);
    *status = VornStatus::GenericFailure;
    if (m_connector != nullptr)
        *status = m_connector->releaseTrigger();
    return create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(status));
}

} // namespace orv
