#include "device/QueryStatisticInfo.h"

#include <map>

#include "core/VornStatus.h"
#include "device/IMirelConnector.h"

namespace orv {

int QueryStatisticInfo::execute(std::string key, unsigned int& value)
{
    if (m_connector == nullptr)
        return VornStatus::RejectedArgument;
    std::map<std::string, unsigned int> counters;
    int const status = m_connector->getStatisticData(counters);
    auto const found = counters.find(key);
    if (found != counters.end())
        value = found->second;
    return status;
}

} // namespace orv
