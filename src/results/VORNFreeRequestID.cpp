#include "results/VORNFreeRequestID.h"

#include "results/ResultIdReply.h"
#include "results/VORNResultManager.h"

namespace orv {

VORNFreeRequestID::VORNFreeRequestID(VORNResultManager& manager, Logger::RedisLogger& logger)
    : m_manager(manager), m_logger(logger)
{}

DataBlock* VORNFreeRequestID::execute(DataBlock const* request)
{
    return ResultIdReply::run(request, [this](std::string const& id) { return m_manager.release(id); });
}

} // namespace orv
