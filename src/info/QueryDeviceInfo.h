// One item of the device's identity or network settings, as the device-info command answers it.
#pragma once

#include <string>

namespace orv {

class IMirelConnector;

class QueryDeviceInfo
{
public:
    explicit QueryDeviceInfo(IMirelConnector* connector) : m_connector(connector) {}
    virtual ~QueryDeviceInfo() = default;

    // True when `value` was filled.
    virtual bool execute(std::string& value) = 0;

protected:
    IMirelConnector* m_connector;
};

} // namespace orv
