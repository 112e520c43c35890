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

namespace orv::test {

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
    ~RedisServer() { stop(); }
    RedisServer(RedisServer const&) = delete;
    RedisServer& operator=(RedisServer const&) = delete;

    std::string const& socketPath() const { return m_socketPath; }
    void stop();  // SIGTERM and wait; idempotent
    void start(); // again, on the same socket, after stop()

    RedisReply command(std::vector<std::string> const& args);
    std::vector<std::string> lrange(std::string const& key, int first = 0, int last = -1);
    long long llen(std::string const& key) { return command({"LLEN", key}).integer; }
    std::optional<std::string> hget(std::string const& key, std::string const& field);
    void hset(std::string const& key, std::string const& field, std::string const& value)
    {
        command({"HSET", key, field, value});
    }

    // The messages of the entries in "LOG:ENTRIES", oldest first, as the logger was given them (not
    // escaped); only those of one category when one is named.
    std::vector<std::string> logMessages(std::string const& category = "");
    // Waits until a client listens on the channel (publish/subscribe loses earlier messages); false
    // after 5 s.
    bool waitForSubscribers(std::string const& channel);

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

} // namespace orv::test
