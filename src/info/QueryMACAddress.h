// The device's MAC address from its hardware information, asked once and then remembered.
#pragma once

#include "info/QueryDeviceInfo.h"

namespace orv {

class QueryMACAddress : public QueryDeviceInfo
{
public:
    explicit QueryMACAddress(IMirelConnector* connector) : QueryDeviceInfo(connector) {}
    bool execute(std::string& value) override;

private:
    std::string m_cached = "FF:FF:FF:FF:FF:FF"; // not yet read
};

} // namespace orv
