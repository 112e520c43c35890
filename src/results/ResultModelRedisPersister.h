// Keeps result models in the Redis cache: one hash per key, the model's JSON text in the field
// "ModelResult".
#pragma once

#include "results/ResultModelPersisterBase.h"

struct redisContext;

namespace orv {

namespace Logger {
class RedisLogger;
}

class ResultModelRedisPersister : public ResultModelPersisterBase
{
public:
    // Both throw std::runtime_error when Redis cannot be reached.
    explicit ResultModelRedisPersister(QString socketPath);
    ResultModelRedisPersister(QString host, int port);
    ~ResultModelRedisPersister() override;

    ResultModelRedisPersister(ResultModelRedisPersister const&) = delete;
    ResultModelRedisPersister& operator=(ResultModelRedisPersister const&) = delete;

    bool put(QString key, ResultModel& model) override;
    bool putJson(QString key, QString json) override;
    bool get(QString key, ResultModel& model) override;
    QString getJson(QString key) override;
    virtual bool rm(QString key);

private:
    void checkConnection();
    bool hset(char const* operation, QString const& key, QByteArray const& json);

    redisContext* m_context = nullptr;
    // Where the persister connected, kept for whoever inspects it; the connection is all it uses.
    [[maybe_unused]] int m_port = 0;
    QString m_host;
    QString m_socketPath;
};

} // namespace orv
