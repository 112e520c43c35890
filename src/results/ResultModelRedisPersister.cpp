#include "results/ResultModelRedisPersister.h"

#include <memory>
#include <stdexcept>
#include <string>

#include <hiredis/hiredis.h>

#include "logger/RedisLogger.h"
#include "results/ResultModel.h"

using orv::Logger::RedisLogger;

namespace orv {
namespace {

// Shared by every persister of the process; made by the first one that connects, never deleted.
RedisLogger* s_logger = nullptr;

struct ReplyDeleter
{
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, ReplyDeleter>;

} // namespace

ResultModelRedisPersister::ResultModelRedisPersister(QString socketPath) : m_socketPath(socketPath)
{
    QByteArray const path = socketPath.toLocal8Bit();
    m_context = redisConnectUnix(path.constData());
    checkConnection();
    if (s_logger == nullptr)
        s_logger = new RedisLogger("ResultModelRedisPersister", path.constData(), "LOG:ENTRIES", true);
}

ResultModelRedisPersister::ResultModelRedisPersister(QString host, int port) : m_port(port), m_host(host)
{
    QByteArray const name = host.toLocal8Bit();
    m_context = redisConnect(name.constData(), port);
    checkConnection();
    if (s_logger == nullptr)
        s_logger = new RedisLogger("ResultModelRedisPersister", name.constData(), port, "LOG:ENTRIES", true);
}

void ResultModelRedisPersister::checkConnection()
{
    if (m_context == nullptr)
        throw std::runtime_error("DbgRedis: Redis instance not reachable");
    if (m_context->err != 0) {
        std::string const text = m_context->errstr;
        redisFree(m_context);
        m_context = nullptr;
        throw std::runtime_error(text);
    }
}

ResultModelRedisPersister::~ResultModelRedisPersister()
{
    redisFree(m_context);
}

bool ResultModelRedisPersister::hset(char const* operation, QString const& key, QByteArray const& json)
{
    QByteArray const name = key.toLocal8Bit();
    Reply reply(static_cast<redisReply*>(redisCommand(m_context, "HSET %s ModelResult %b", name.constData(),
                                                      json.constData(), size_t(json.size()))));
    // A broken connection gives no reply at all: that is a failed store, not a crash.
    if (!reply)
        return false;
    if (reply->type != REDIS_REPLY_INTEGER)
        s_logger->log(RedisLogger::WARN, "%s: unexpected reply->type: %d", operation, reply->type);
    return reply->type == REDIS_REPLY_INTEGER;
}

bool ResultModelRedisPersister::put(QString key, ResultModel& model)
{
    return hset("put", key, model.serialize());
}

bool ResultModelRedisPersister::putJson(QString key, QString json)
{
    return hset("putJson", key, json.toUtf8());
}

QString ResultModelRedisPersister::getJson(QString key)
{
    QByteArray const name = key.toLocal8Bit();
    if (redisAppendCommand(m_context, "HGET %s ModelResult", name.constData()) != REDIS_OK)
        return QString();
    void* raw = nullptr;
    if (redisGetReply(m_context, &raw) != REDIS_OK || raw == nullptr)
        return QString();
    Reply reply(static_cast<redisReply*>(raw));
    if (reply->type == REDIS_REPLY_STRING)
        return QString::fromUtf8(reply->str, static_cast<int>(reply->len));
    if (reply->type == REDIS_REPLY_ERROR)
        s_logger->log(RedisLogger::ERROR, "%s: HGET %s ModelResult: %s\n", "getJson", name.constData(),
                      reply->str);
    else
        s_logger->log(RedisLogger::ERROR, "%s: Wrong type(%d) returned (%s) for %s\n", "getJson", reply->type,
                      reply->str != nullptr ? reply->str : "(null)", name.constData());
    return QString();
}

bool ResultModelRedisPersister::get(QString key, ResultModel& model)
{
    QByteArray json = getJson(key).toUtf8();
    if (json.isEmpty())
        return false;
    if (!model.parse(json)) {
        s_logger->log(RedisLogger::WARN, "%s: model parsing failed ?!", "get");
        return false;
    }
    return true;
}

bool ResultModelRedisPersister::rm(QString key)
{
    QByteArray const name = key.toLocal8Bit();
    if (redisAppendCommand(m_context, "HDEL %s ModelResult", name.constData()) != REDIS_OK)
        return false;
    void* raw = nullptr;
    if (redisGetReply(m_context, &raw) != REDIS_OK)
        return false;
    freeReplyObject(raw);
    return true;
}

} // namespace orv
