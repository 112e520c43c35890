#include "device/VORNQueryStatisticInfo.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "core/VornStatus.h"
#include "device/DeviceReplies.h"
#include "device/IMirelConnector.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;

namespace orv {

namespace {

// The counter in the representation asked for, in a new buffer; false for an unknown code.
bool makeValue(int32_t representation, unsigned int counter, void** value, int32_t* size)
{
    switch (representation) {
    case 1:
    case 2:
        *size = sizeof(uint32_t);
        *value = malloc(*size);
        if (*value != nullptr)
            memcpy(*value, &counter, *size);
        return true;
    case 3: {
        float const f = static_cast<float>(counter);
        *size = sizeof f;
        *value = malloc(*size);
        if (*value != nullptr)
            memcpy(*value, &f, *size);
        return true;
    }
    case 4: {
        double const d = static_cast<double>(counter);
        *size = sizeof d;
        *value = malloc(*size);
        if (*value != nullptr)
            memcpy(*value, &d, *size);
        return true;
    }
    default:
        return false;
    }
}

} // namespace

VORNQueryStatisticInfo::VORNQueryStatisticInfo(IMirelConnector* connector, RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{}

DataBlock* VORNQueryStatisticInfo::execute(DataBlock const* request)
{
    auto* reply = static_cast<VORNStatisticReply*>(malloc(sizeof(VORNStatisticReply)));
    if (reply != nullptr) {
        memset(reply, 0, sizeof *reply);
        reply->status = VornStatus::GenericFailure;
        if (request != nullptr && request->data != nullptr)
            fill(reply, request->data);
    }
    return create_DataBlock(ReplyCode::QueryStatisticInfo, reinterpret_cast<unsigned char*>(reply));
}

void VORNQueryStatisticInfo::fill(VORNStatisticReply* reply, unsigned char const* data)
{
    VORNStatisticRequest args;
    memcpy(&args, data, sizeof args);
    std::string const key(args.key, strnlen(args.key, sizeof args.key));
    if (m_connector == nullptr)
        return;

    std::map<std::string, unsigned int> counters;
    reply->status = m_connector->getStatisticData(counters);
    auto const found = counters.find(key);
    // A key the imager does not count reads as zero rather than an error.
    unsigned int const counter = found != counters.end() ? found->second : 0;
    if (reply->status != VornStatus::Success) {
        m_logger.log(RedisLogger::FATAL, "Invalid request key provided: %s", key.c_str());
        reply->status = VornStatus::RejectedArgument;
        return;
    }
    if (!makeValue(args.representation, counter, &reply->value, &reply->size)) {
        reply->status = VornStatus::RejectedArgument;
        reply->size = 0;
        reply->value = nullptr;
        return;
    }
    if (reply->value == nullptr) {
        reply->size = 0;
        reply->status = VornStatus::GenericFailure;
        return;
    }
    reply->representation = args.representation;
    reply->status = VornStatus::Success;
}

} // namespace orv
