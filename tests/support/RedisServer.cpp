#include "RedisServer.h"

#include <chrono>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <hiredis/hiredis.h>

#include "Process.h"

namespace orv::test {
namespace {

RedisReply convert(redisReply const* reply)
{
    RedisReply out;
    out.type = reply->type;
    out.integer = reply->integer;
    if (reply->str != nullptr)
        out.str.assign(reply->str, reply->len);
    for (size_t i = 0; i < reply->elements; ++i)
        out.elements.push_back(convert(reply->element[i]));
    return out;
}

} // namespace

RedisServer::RedisServer(std::string socketPath)
{
    if (socketPath.empty()) {
        m_dir = std::make_unique<TempDir>("kv-redis");
        socketPath = m_dir->file("redis.sock");
    }
    m_socketPath = socketPath;
    start();
}

void RedisServer::start()
{
    m_pid = startSocketService({"redis-server", "--port", "0", "--unixsocket", m_socketPath,
                                "--unixsocketperm", "700", "--save", "", "--appendonly", "no", "--loglevel",
                                "warning", "--logfile", "/dev/null"},
                               m_socketPath);
}

void RedisServer::stop()
{
    redisFree(m_client); // nothing when there is no client
    m_client = nullptr;
    if (m_pid > 0) {
        stopProcess(m_pid);
        unlink(m_socketPath.c_str());
    }
}

redisContext* RedisServer::client()
{
    if (m_client == nullptr) {
        m_client = redisConnectUnix(m_socketPath.c_str());
        if (m_client == nullptr || m_client->err != 0)
            throw std::runtime_error("test client cannot reach " + m_socketPath);
    }
    return m_client;
}

RedisReply RedisServer::command(std::vector<std::string> const& args)
{
    std::vector<char const*> argv;
    std::vector<size_t> lengths;
    for (auto const& a : args)
        argv.push_back(a.data()), lengths.push_back(a.size());
    auto* reply = static_cast<redisReply*>(
        redisCommandArgv(client(), static_cast<int>(argv.size()), argv.data(), lengths.data()));
    if (reply == nullptr)
        throw std::runtime_error("redis command failed: " + args.front());
    RedisReply out = convert(reply);
    freeReplyObject(reply);
    return out;
}

std::vector<std::string> RedisServer::lrange(std::string const& key, int first, int last)
{
    std::vector<std::string> out;
    for (auto const& e : command({"LRANGE", key, std::to_string(first), std::to_string(last)}).elements)
        out.push_back(e.str);
    return out;
}

std::optional<std::string> RedisServer::hget(std::string const& key, std::string const& field)
{
    RedisReply const r = command({"HGET", key, field});
    return r.type == REDIS_REPLY_STRING ? std::optional<std::string>(r.str) : std::nullopt;
}

std::vector<std::string> RedisServer::logMessages(std::string const& category)
{
    std::vector<std::string> out;
    for (std::string const& entry : lrange("LOG:ENTRIES")) {
        QJsonObject const object = QJsonDocument::fromJson(QByteArray::fromStdString(entry)).object();
        if (category.empty() || object.value("C").toString().toStdString() == category)
            out.push_back(object.value("M").toString().toStdString());
    }
    return out;
}

bool RedisServer::waitForSubscribers(std::string const& channel)
{
    for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        if (command({"PUBSUB", "NUMSUB", channel}).elements.at(1).integer > 0)
            return true;
    }
    return false;
}

RedisEnvironment::RedisEnvironment()
    : m_dir("kv-env"), m_cache(m_dir.file("cache.sock")), m_permanent(m_dir.file("perm.sock")),
      m_cacheEnv("ORV_REDIS_CACHE_SOCKET", m_cache.socketPath()),
      m_permanentEnv("ORV_REDIS_SOCKET", m_permanent.socketPath())
{}

} // namespace orv::test
