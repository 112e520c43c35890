// One statistics counter by key, without a reply block, for callers inside the plug-in.
#pragma once

#include <string>

namespace orv {

class IMirelConnector;

// KEPT: the plug-in itself never calls it; it serves callers that want one counter without a block.
class QueryStatisticInfo
{
public:
    explicit QueryStatisticInfo(IMirelConnector* connector) : m_connector(connector) {}
    virtual ~QueryStatisticInfo() = default;

    // The connector's status (the rejected-argument status without a connector); `value` is set
    // only when the imager counts `key`.
    int execute(std::string key, unsigned int& value);

private:
    IMirelConnector* m_connector;
};

} // namespace orv
