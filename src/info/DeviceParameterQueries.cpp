#include "info/DeviceParameterQueries.h"

#include "device/IMirelConnector.h"

namespace orv {

bool QueryDeviceParameter::execute(std::string& value)
{
    return m_connector != nullptr && m_connector->getDeviceParam(m_parameter, value);
}

} // namespace orv
