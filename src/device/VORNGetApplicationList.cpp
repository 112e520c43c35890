#include "device/VORNGetApplicationList.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/VornStatus.h"
#include "device/DeviceReplies.h"
#include "device/IMirelConnector.h"

namespace orv {

VORNGetApplicationList::VORNGetApplicationList(IMirelConnector* connector, Logger::RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{}

DataBlock* VORNGetApplicationList::execute(DataBlock const*)
{
    auto* reply = static_cast<VORNApplicationListReply*>(malloc(sizeof(VORNApplicationListReply)));
    if (reply == nullptr)
        return create_DataBlock(ReplyCode::Default, nullptr);
    // Unused slots are zero rather than stale heap contents sent to a client.
    memset(reply, 0, sizeof *reply);
    reply->status = VornStatus::GenericFailure;
    if (m_connector != nullptr) {
        std::vector<int> indices;
        reply->status = m_connector->getApplicationList(indices, reply->active);
        reply->count = static_cast<int32_t>(std::min<size_t>(indices.size(), MaxApplications));
        std::copy_n(indices.begin(), reply->count, reply->indices);
        // Whatever the device answered, a present device makes the list a success: the host shows
        // the (possibly partial) list rather than an error.
        reply->status = VornStatus::Success;
    }
    return create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(reply));
}

} // namespace orv
