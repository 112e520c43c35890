#include "results/VORNAcquireResultID.h"

#include "results/ResultIdReply.h"
#include "results/VORNResultManager.h"

namespace orv {

VORNAcquireResultID::VORNAcquireResultID(VORNResultManager& manager, Logger::RedisLogger& logger)
    : m_manager(manager), m_logger(logger)
{}

DataBlock* VORNAcquireResultID::execute(DataBlock const* request)
{
    // A wrong frame and no frame read the same to the client: both are the generic failure.
    return ResultIdReply::run(request, [this](std::string const& id) { return m_manager.acquire(id); });
}

} // namespace orv
