#include "info/QueryMACAddress.h"

#include <map>

#include "device/IMirelConnector.h"

namespace orv {

bool QueryMACAddress::execute(std::string& value)
{
    if (m_cached != "FF:FF:FF:FF:FF:FF") {
        value = m_cached;
        return true;
    }
    std::map<std::string, std::string> info;
    if (m_connector == nullptr || !m_connector->getHWInfo(info))
        return false;
    auto const mac = info.find("MACAddress");
    if (mac == info.end())
        return false;
    // The address of a device never changes while the plug-in is loaded.
    m_cached = mac->second;
    value = m_cached;
    return true;
}

} // namespace orv
