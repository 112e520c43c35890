// The logger's own side: its construction, the registry of configurable loggers and the entry write.
#include "logger/RedisLoggerPimpl.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <unistd.h>

#include <hiredis/hiredis.h>

#include "logger/LogEntryFormat.h"
#include "logger/RedisConnection.h"

namespace orv {
namespace Logger {

std::set<RedisLoggerPimpl*>* RedisLoggerPimpl::g_pimpls = nullptr;
std::thread* RedisLoggerPimpl::g_configThread = nullptr;
event_base* RedisLoggerPimpl::g_configEvLoop = nullptr;
event* RedisLoggerPimpl::g_configTimer = nullptr;

RedisLoggerPimpl::RedisLoggerPimpl(char const* sourceName, char const* host, int port,
                                   char const* unixSocketPath, char const* logKey)
    : context(nullptr), sourceName(sourceName != nullptr ? sourceName : ""),
      host(host != nullptr ? host : ""), port(port),
      unixSocketPath(unixSocketPath != nullptr ? unixSocketPath : ""), pid(getpid()),
      logKey(logKey != nullptr ? logKey : ""), maxLogs(10000), mask(0xF0)
{}

RedisLoggerPimpl::~RedisLoggerPimpl()
{
    if (context != nullptr)
        redisFree(context);
}

std::mutex& RedisLoggerPimpl::loggerMutex()
{
    static auto* mutex = new std::mutex;
    return *mutex;
}

bool RedisLoggerPimpl::firstTimeLogged(std::string const& text)
{
    static std::set<std::string>* loggedOnce = nullptr;
    if (loggedOnce == nullptr)
        loggedOnce = new std::set<std::string>;
    return loggedOnce->insert(text).second;
}

// ---------------------------------------------------------------------------------------------
// Construction and registry

void RedisLoggerPimpl::init(redisContext* connection, bool subscribeConfig)
{
    if (connection == nullptr)
        throw std::runtime_error("DbgRedis: Redis instance not reachable");
    if (connection->err != 0) {
        std::string const error = connection->errstr;
        redisFree(connection);
        throw std::runtime_error(error);
    }
    context = connection;

    if (g_pimpls == nullptr)
        g_pimpls = new std::set<RedisLoggerPimpl*>;
    if (!subscribeConfig)
        return;
    g_pimpls->insert(this);
    if (g_pimpls->size() == 1 && g_configThread == nullptr)
        startConfigThread(this);
}

void RedisLoggerPimpl::unregister()
{
    if (g_pimpls == nullptr)
        return;
    g_pimpls->erase(this);
    if (!g_pimpls->empty())
        return;
    stopConfigThread();
    delete g_pimpls;
    g_pimpls = nullptr;
}

// ---------------------------------------------------------------------------------------------
// Entry write

int RedisLoggerPimpl::logFixed(Category category, char const* message, unsigned int length, bool checkMask)
{
    int result = -1;
    if (checkMask && (static_cast<unsigned int>(category) & mask) == 0) {
        result = 0;
    } else if (context == nullptr) {
        fputs(kNotConnected, stderr);
    } else if (context->err == 0) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);

        // Only the first kEntrySize bytes can ever reach the entry, so escaping more is wasted.
        size_t const messageLength = length != 0 ? length : strlen(message);
        size_t const used =
            messageLength < LogEntryFormat::kEntrySize ? messageLength : LogEntryFormat::kEntrySize;
        char escaped[2 * LogEntryFormat::kEntrySize + 1];
        LogEntryFormat::escape(message, used, escaped);

        char entry[LogEntryFormat::kEntrySize];
        size_t const entryLength = LogEntryFormat::format(entry, static_cast<long>(now.tv_sec), now.tv_nsec,
                                                          pid, category, sourceName.c_str(), escaped);
        result = pushEntry(entry, static_cast<unsigned int>(entryLength)) ? 0 : -1;
    }
    crashIfMatches(message);
    return result;
}

bool RedisLoggerPimpl::pushEntry(char const* entry, unsigned int length)
{
    // One exchange with the server: queue all three commands, then read the three replies.
    // KEPT: the failure texts say "LPUSH" and "LTRIM %s 0 10000", not what is sent; readers know them.
    if (redisAppendCommand(context, "RPUSH %s %b", logKey.c_str(), entry, static_cast<size_t>(length)) !=
        REDIS_OK) {
        fprintf(stderr, "%s: LPUSH %s %s failed!\n", "redisPushLog", logKey.c_str(), entry);
        dropConnection();
        return false;
    }
    if (redisAppendCommand(context, "LTRIM %s -%d -1", logKey.c_str(), maxLogs) != REDIS_OK) {
        fprintf(stderr, "%s: LTRIM %s 0 %d failed!\n", "redisPushLog", logKey.c_str(), 10000);
        dropConnection();
        return false;
    }
    if (redisAppendCommand(context, "PUBLISH %s %b", logKey.c_str(), entry, static_cast<size_t>(length)) !=
        REDIS_OK) {
        fprintf(stderr, "%s: PUBLISH %s %s failed!\n", "redisPushLog", logKey.c_str(), entry);
        dropConnection();
        return false;
    }
    for (int i = 0; i < 3; ++i) {
        void* reply = nullptr;
        if (redisGetReply(context, &reply) != REDIS_OK) {
            dropConnection();
            return false;
        }
        freeReplyObject(reply);
    }
    return true;
}

void RedisLoggerPimpl::dropConnection()
{
    // No reconnection: a logger that lost its server stays silent apart from the "not connected" note.
    fprintf(stderr, "%s: failed with err: (%d:%s)\n", "redisPushLog", context->err, context->errstr);
    redisFree(context);
    context = nullptr;
}

void RedisLoggerPimpl::crashIfMatches(char const* message) const
{
    if (!segvRegex.matches(message))
        return;
    fprintf(stderr, "Will raise(SIGSEGV): %s matches configured regex(%s)!\n", message,
            segvRegex.expression().c_str());
    fflush(stderr);
    raise(SIGSEGV);
}

void RedisLoggerPimpl::refuseConfig(char const* format, ...)
{
    char text[LogEntryFormat::kEntrySize];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    logFixed(RedisLogger::ERROR, text, 0, false);
}

} // namespace Logger
} // namespace orv
