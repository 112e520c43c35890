#include "device/VORNSetApplication.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/VornStatus.h"
#include "device/IMirelConnector.h"

namespace orv {

VORNSetApplication::VORNSetApplication(IMirelConnector* connector, Logger::RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{}

DataBlock* VORNSetApplication::execute(DataBlock const* request)
{
    auto* status = static_cast<int32_t*>(malloc(sizeof(int32_t)));
    if (status != nullptr) {
        *status = VornStatus::GenericFailure;
        if (request != nullptr && request->data != nullptr && m_connector != nullptr) {
            int32_t index;
            memcpy(&index, request->data, sizeof index);
            *status = m_connector->activateApplication(index);
        }
    }
    return create_DataBlock(ReplyCode::SetApplication, reinterpret_cast<unsigned char*>(status));
}

} // namespace orv
