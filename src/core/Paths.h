// The plug-in's fixed sockets and directories. Each can be overridden by one environment variable
// so that tests and the demo run without a camera's files; the camera itself sets none of them.
#pragma once

#include <string>

namespace orv {

class Paths
{
public:
    static std::string redisCacheSocket(); // ORV_REDIS_CACHE_SOCKET, "/tmp/redis-cache.sock"
    static std::string redisSocket();      // ORV_REDIS_SOCKET, "/tmp/redis.sock"
    static std::string vornSchemaDir();    // ORV_VORN_SCHEMA_DIR, "/opt/orv/usr/share/vorn/schema/"
    static std::string imagerRunDir();     // ORV_IMAGER_RUN_DIR, "/var/run/imager"
    static std::string frameDir();         // ORV_FRAME_DIR, "/dev/shm/orv-frames"
};

} // namespace orv
