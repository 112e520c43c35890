// The device-info items read from the system's network configuration of "eth0".
#pragma once

#include "info/QueryDeviceInfo.h"

namespace orv {

// The first usable address entry of eth0 (link-local addresses are not usable for clients).
class QueryIPV4Address : public QueryDeviceInfo
{
public:
    using QueryDeviceInfo::QueryDeviceInfo;
    bool execute(std::string& value) override;
};

// The netmask of the same address entry.
class QueryIPV4Subnet : public QueryDeviceInfo
{
public:
    using QueryDeviceInfo::QueryDeviceInfo;
    bool execute(std::string& value) override;
};

// The default route's gateway via eth0, from the routing table's first line.
class QueryIPV4Gateway : public QueryDeviceInfo
{
public:
    using QueryDeviceInfo::QueryDeviceInfo;
    bool execute(std::string& value) override;
};

} // namespace orv
