// Log configuration texts, as "LOGGER:CFG" or "LOG:PERM:CFG" deliver them to a logger (crash-trigger
// expressions included), and log entries read back by the log tools.
#include <cstdint>
#include <string>

#include <hiredis/hiredis.h>

#include "RedisServer.h"
#include "logger/RedisLoggerPimpl.h"

using orv::Logger::RedisLoggerPimpl;

namespace {

RedisLoggerPimpl& logger()
{
    static auto* redis = new orv::test::RedisServer;
    static auto* made = [] {
        auto* pimpl = new RedisLoggerPimpl("KSCOM", nullptr, 0, redis->socketPath().c_str(), "LOG:ENTRIES");
        pimpl->init(redisConnectUnix(redis->socketPath().c_str()), false);
        return pimpl;
    }();
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    RedisLoggerPimpl& pimpl = logger();
    std::string const text(reinterpret_cast<char const*>(data), size);
    // Each text starts from the same settings. The crash trigger is searched here, not raised: a
    // configured expression that matches is the trigger doing its work, not a fault.
    std::string error;
    pimpl.segvRegex.set("", error);
    pimpl.maxLogs = 10000;
    std::lock_guard<std::mutex> lock(RedisLoggerPimpl::loggerMutex());
    if (pimpl.evaluateConfig(text.c_str(), false)) {
        pimpl.segvRegex.matches(text.c_str());
        pimpl.segvRegex.matches("Applying new log configuration: mask(0xff), SigSegV Regexp(), max logs(1)");
    }
    RedisLoggerPimpl::Entry entry;
    RedisLoggerPimpl::json2Entry(entry, text.c_str());
    return 0;
}
