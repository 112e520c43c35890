#include "info/VORNQueryDeviceInfo.h"
#include "core/TextField.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

#include "core/VornStatus.h"
#include "info/DeviceParameterQueries.h"
#include "info/NetworkQueries.h"
#include "info/QueryMACAddress.h"

namespace orv {

VORNQueryDeviceInfo::VORNQueryDeviceInfo(IMirelConnector* connector, Logger::RedisLogger& logger)
    : m_logger(logger), m_connector(connector)
{
    m_queries["vendor"] = new QueryVendorName(connector);
    m_queries["article_number"] = new QueryArticelNumber(connector);
    m_queries["name"] = new QueryDeviceName(connector);
    m_queries["location"] = new QueryDeviceLocation(connector);
    m_queries["device_info"] = new QueryDeviceDescription(connector);
    m_queries["ipv4_address"] = new QueryIPV4Address(connector);
    m_queries["ipv4_subnetmask"] = new QueryIPV4Subnet(connector);
    m_queries["ipv4_gateway"] = new QueryIPV4Gateway(connector);
    m_queries["mac_address"] = new QueryMACAddress(connector);
    m_queries["ipv4_dhcp"] = new QueryIPV4DHCP(connector);
    m_queries["port_number"] = new QueryXMLRPCPort(connector);
}

VORNQueryDeviceInfo::~VORNQueryDeviceInfo()
{
    for (auto& query : m_queries)
        delete query.second;
}

DataBlock* VORNQueryDeviceInfo::execute(DataBlock const* request)
{
    auto* reply = static_cast<VORNDeviceInfoReply*>(malloc(sizeof(VORNDeviceInfoReply)));
    if (reply == nullptr)
        return nullptr;
    memset(reply, 0, sizeof *reply);
    reply->status = VornStatus::GenericFailure;

    // A request without a key is answered like an unknown key.
    char const* key =
        request != nullptr && request->data != nullptr ? reinterpret_cast<char const*>(request->data) : "";
    auto const query = m_queries.find(key);
    if (query == m_queries.end()) {
        reply->status = VornStatus::RejectedArgument;
    } else {
        copyTextField(reply->key, sizeof reply->key, key);
        try {
            std::string value;
            if (query->second->execute(value)) {
                copyTextField(reply->value, sizeof reply->value, value.c_str());
                reply->status = VornStatus::Success;
            }
        } catch (std::bad_alloc const& e) {
            std::cerr << "[VORNQueryDeviceInfo] bad_alloc caught ("
                      << "execute"
                      << "): " << e.what() << std::endl;
        }
    }
    return create_DataBlock(ReplyCode::QueryDeviceInfo, reinterpret_cast<unsigned char*>(reply));
}

} // namespace orv
