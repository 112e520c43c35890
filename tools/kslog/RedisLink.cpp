#include "RedisLink.h"

#include <sys/socket.h>

namespace kslog {

RedisLink::RedisLink(std::string const& socket) : m_context(redisConnectUnix(socket.c_str())) {}

RedisLink::~RedisLink()
{
    if (m_context != nullptr)
        redisFree(m_context);
}

bool RedisLink::ok() const
{
    return m_context != nullptr && m_context->err == 0;
}

std::string RedisLink::error() const
{
    return m_context == nullptr ? "out of memory" : m_context->errstr;
}

RedisLink::Reply RedisLink::command(std::vector<std::string> const& args)
{
    if (!ok())
        return nullptr;
    std::vector<char const*> argv;
    std::vector<size_t> lengths;
    for (auto const& arg : args) {
        argv.push_back(arg.data());
        lengths.push_back(arg.size());
    }
    return Reply(static_cast<redisReply*>(
        redisCommandArgv(m_context, static_cast<int>(argv.size()), argv.data(), lengths.data())));
}

RedisLink::Reply RedisLink::next()
{
    void* reply = nullptr;
    if (!ok() || redisGetReply(m_context, &reply) != REDIS_OK)
        return nullptr;
    return Reply(static_cast<redisReply*>(reply));
}

void RedisLink::interrupt()
{
    // Only the socket is shut: the context stays the reading thread's, which sees the end and stops.
    if (m_context != nullptr && m_context->fd >= 0)
        shutdown(m_context->fd, SHUT_RDWR);
}

} // namespace kslog
