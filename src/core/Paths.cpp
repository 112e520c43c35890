#include "core/Paths.h"

#include <cstdlib>

namespace orv {
namespace {

// Read on every call rather than cached, so a test can point one process at several setups.
std::string fromEnvironment(char const* variable, char const* fixed)
{
    char const* value = getenv(variable);
    return (value != nullptr && *value != '\0') ? value : fixed;
}

} // namespace

std::string Paths::redisCacheSocket()
{
    return fromEnvironment("ORV_REDIS_CACHE_SOCKET", "/tmp/redis-cache.sock");
}

std::string Paths::redisSocket()
{
    return fromEnvironment("ORV_REDIS_SOCKET", "/tmp/redis.sock");
}

std::string Paths::vornSchemaDir()
{
    std::string dir = fromEnvironment("ORV_VORN_SCHEMA_DIR", "/opt/orv/usr/share/vorn/schema/");
    if (dir.back() != '/')
        dir += '/';
    return dir;
}

std::string Paths::imagerRunDir()
{
    return fromEnvironment("ORV_IMAGER_RUN_DIR", "/var/run/imager");
}

std::string Paths::frameDir()
{
    return fromEnvironment("ORV_FRAME_DIR", "/dev/shm/orv-frames");
}

} // namespace orv
