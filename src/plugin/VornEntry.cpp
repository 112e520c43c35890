// The static plug-in object and the two C entry points the host daemon calls. Only the shared
// library contains this file: loading it connects to Redis and the bus.
#include "plugin/KestrelVORN.h"

namespace {
KestrelVORN g_kestrelVorn;
}

extern "C" __attribute__((visibility("default"))) void* VORN_init()
{
    g_kestrelVorn.logger().log(orv::Logger::RedisLogger::DEBUG, "%s() ", "void* VORN_init()");
    return &g_kestrelVorn;
}

extern "C" __attribute__((visibility("default"))) DataBlock* VORN_handle_call(void* handle,
                                                                              DataBlock* request)
{
    if (handle == nullptr || request == nullptr)
        return nullptr;
    return static_cast<KestrelVORN*>(handle)->dispatch(request);
}
