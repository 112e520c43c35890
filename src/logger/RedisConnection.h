// The Redis plumbing that the logger's files share: replies, asynchronous connections, fixed texts.
#pragma once

#include <cstdarg>
#include <cstring>
#include <memory>

#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include "logger/RedisLoggerPimpl.h"

namespace orv {
namespace Logger {

inline constexpr char kConfigChannel[] = "LOGGER:CFG";
// KEPT: "!n", not a line break: the text as readers of the process's errors know it.
inline constexpr char kNotConnected[] = "REDIS NOT CONNECTED !n";

struct ReplyDeleter
{
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using ReplyPtr = std::unique_ptr<redisReply, ReplyDeleter>;

inline ReplyPtr command(redisContext* context, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    void* reply = redisvCommand(context, format, args);
    va_end(args);
    return ReplyPtr(static_cast<redisReply*>(reply));
}

// Set on an asynchronous connection's data so the owner knows whether hiredis has already freed it.
struct AsyncState
{
    bool alive = true;
};

inline redisAsyncContext* connectAsync(RedisLoggerPimpl const& pimpl)
{
    if (pimpl.port == 0)
        return redisAsyncConnectUnix(pimpl.unixSocketPath.c_str());
    return redisAsyncConnect(pimpl.host.c_str(), pimpl.port);
}

// Connects to the logger's Redis asynchronously, attaches the connection to `base` with the connect
// and disconnect callbacks and subscribes to `channel`, whose messages go to `onMessage` with `data`.
// Null, with the reason on standard error, when no connection can be made. The caller runs the loop
// and then frees the connection if `state` says it is still alive.
redisAsyncContext* subscribeAsync(RedisLoggerPimpl const& pimpl, event_base* base, AsyncState& state,
                                  redisCallbackFn* onMessage, void* data, char const* channel);

inline bool isMessage(redisReply const* reply)
{
    return reply != nullptr && reply->type == REDIS_REPLY_ARRAY && reply->elements == 3 &&
           reply->element[0]->type == REDIS_REPLY_STRING && strcmp(reply->element[0]->str, "message") == 0 &&
           reply->element[2]->str != nullptr;
}

} // namespace Logger
} // namespace orv
