// A real redis-server on a Unix socket in a temporary directory, for as long as the object lives,
// with a few client helpers on a connection of the test's own.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "ScopedEnv.h"
#include "TempDir.h"

struct redisContext;

namespace orv {
namespace test {

struct RedisReply
{
    int type = 0; // hiredis REDIS_REPLY_* value
    long long integer = 0;
    std::string str; // string, status or error text
    std::vector<RedisReply> elements;
};

class RedisServer
{
public:
    // Starts the server and waits (with a deadline) until it accepts connections; throws otherwise.
    explicit RedisServer(std::string socketPath = "");
    ~RedisServer();
    RedisServer(RedisServer const&) = delete;
    RedisServer& operator=(RedisServer const&) = delete;

    std::string const& socketPath() const { return m_socketPath; }
    void stop(); // SIGTERM and wait; idempotent

    RedisReply command(std::vector<std::string> const& args);
    std::vector<std::string> lrange(std::string const& key, int first = 0, int last = -1);
    long long llen(std::string const& key);
    std::optional<std::string> hget(std::string const& key, std::string const& field);
    void hset(std::string const& key, std::string const& field, std::string const& value);
    long long publish(std::string const& channel, std::string const& message);
    void del(std::string const& key);

    // Subscribers of a channel, asked on a connection of its own (safe in a forked child too).
    static long long numberOfSubscribers(std::string const& socketPath, std::string const& channel);

private:
    redisContext* client();

    std::unique_ptr<TempDir> m_dir;
    std::string m_socketPath;
    pid_t m_pid = -1;
    redisContext* m_client = nullptr;
};

// The two servers of a camera: the cache socket (results and logs) and the one that keeps the
// permanent log configuration, with the plug-in's path overrides pointing at them.
class RedisEnvironment
{
public:
    RedisEnvironment();

    RedisServer& cache() { return m_cache; }
    RedisServer& permanent() { return m_permanent; }

private:
    TempDir m_dir;
    RedisServer m_cache;
    RedisServer m_permanent;
    ScopedEnv m_cacheEnv;
    ScopedEnv m_permanentEnv;
};

} // namespace test
} // namespace orv
