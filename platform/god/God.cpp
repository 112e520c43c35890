#include "god/God.h"

#include <csignal>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <string>

#include <hiredis/hiredis.h>

#include "core/Paths.h"

namespace god {
namespace {

struct ContextDeleter
{
    void operator()(redisContext* c) const { redisFree(c); }
};

struct Connection
{
    std::unique_ptr<redisContext, ContextDeleter> context;
    std::string socketPath;
};

// hiredis contexts are not thread-safe, hence one per thread; it follows the socket path so that a
// process pointed at another cache reconnects. A context that failed, to connect or later, is
// replaced on the next call.
redisContext* connection()
{
    thread_local Connection c;
    std::string const path = orv::Paths::redisCacheSocket();
    if (c.context && (c.context->err != 0 || c.socketPath != path))
        c.context.reset();
    if (!c.context) {
        c.context.reset(redisConnectUnix(path.c_str()));
        c.socketPath = path;
    }
    return c.context && c.context->err == 0 ? c.context.get() : nullptr;
}

// A write to a cache that went away must not end the host process with SIGPIPE: the signal is
// blocked for the call and a pending one is taken back before it is unblocked.
class SigpipeGuard
{
public:
    SigpipeGuard()
    {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        m_wasPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_old);
    }
    ~SigpipeGuard()
    {
        if (!m_wasPending) {
            timespec const none{0, 0};
            while (sigtimedwait(&m_pipe, nullptr, &none) == SIGPIPE) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_old, nullptr);
    }

private:
    sigset_t m_pipe;
    sigset_t m_old;
    bool m_wasPending = false;
};

} // namespace

int getall(QString const* key, QStringList* fields, QStringList* values)
{
    if (key == nullptr || fields == nullptr || values == nullptr)
        return BadArgument;
    SigpipeGuard guard;
    redisContext* context = connection();
    if (context == nullptr)
        return NotConnected;
    QByteArray const name = key->toLocal8Bit();
    auto* reply =
        static_cast<redisReply*>(redisCommand(context, "HGETALL %b", name.constData(), size_t(name.size())));
    if (reply == nullptr)
        return NoReply;
    std::unique_ptr<redisReply, void (*)(void*)> owned(reply, freeReplyObject);
    if (reply->type != REDIS_REPLY_ARRAY || reply->elements % 2 != 0)
        return WrongReply;
    for (size_t i = 0; i + 1 < reply->elements; i += 2) {
        redisReply const* field = reply->element[i];
        redisReply const* value = reply->element[i + 1];
        fields->append(QString::fromUtf8(field->str, static_cast<int>(field->len)));
        values->append(QString::fromUtf8(value->str, static_cast<int>(value->len)));
    }
    return 0;
}

} // namespace god
