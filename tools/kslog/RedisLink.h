// A plain connection of the tool's own to the log's Redis, for what the logger's interface does not
// offer: a publish that tells how many received it, a subscription that notices when the server
// goes, and filters run on single entries.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <hiredis/hiredis.h>

namespace kslog {

class RedisLink
{
public:
    struct ReplyDeleter
    {
        void operator()(redisReply* reply) const { freeReplyObject(reply); }
    };
    using Reply = std::unique_ptr<redisReply, ReplyDeleter>;

    explicit RedisLink(std::string const& socket);
    ~RedisLink();
    RedisLink(RedisLink const&) = delete;
    RedisLink& operator=(RedisLink const&) = delete;

    // False once the connection failed or ended; error() then says why.
    bool ok() const;
    std::string error() const;

    // One command; null when the connection failed.
    Reply command(std::vector<std::string> const& args);
    // The next reply the server sends unasked (a subscribed connection); null when it ended.
    Reply next();
    // Ends the connection from another thread, so that a next() waiting in it returns null.
    void interrupt();

private:
    redisContext* m_context;
};

} // namespace kslog
