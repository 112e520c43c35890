// The logger's asynchronous connections, shared by the configuration thread and the log follower.
#include "logger/RedisConnection.h"

#include <cstdio>

#include <hiredis/adapters/libevent.h>

namespace orv {
namespace Logger {

redisAsyncContext* subscribeAsync(RedisLoggerPimpl const& pimpl, event_base* base, AsyncState& state,
                                  redisCallbackFn* onMessage, void* data, char const* channel)
{
    redisAsyncContext* async = connectAsync(pimpl);
    if (async == nullptr || async->err != 0) {
        fprintf(stderr, "Error: %s\n", async != nullptr ? async->errstr : "cannot allocate connection");
        if (async != nullptr)
            redisAsyncFree(async);
        return nullptr;
    }
    async->data = &state;
    redisLibeventAttach(async, base);
    redisAsyncSetConnectCallback(async, RedisLoggerPimpl::connectCallback);
    redisAsyncSetDisconnectCallback(async, RedisLoggerPimpl::disconnectCallback);
    redisAsyncCommand(async, onMessage, data, "SUBSCRIBE %s", channel);
    return async;
}

void RedisLoggerPimpl::connectCallback(redisAsyncContext const* context, int status)
{
    if (status == REDIS_OK)
        return;
    printf("Error: %s\n", context->errstr);
    if (context->data != nullptr)
        static_cast<AsyncState*>(context->data)->alive = false;
}

void RedisLoggerPimpl::disconnectCallback(redisAsyncContext const* context, int status)
{
    // hiredis frees the connection after this call, whatever the status.
    if (context->data != nullptr)
        static_cast<AsyncState*>(context->data)->alive = false;
    if (status != REDIS_OK)
        printf("Error: %s\n", context->errstr);
}

} // namespace Logger
} // namespace orv
