#include "logger/RedisLogger.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include <hiredis/hiredis.h>

#include "logger/LogEntryFormat.h"
#include "logger/RedisLoggerPimpl.h"

namespace orv {
namespace Logger {
namespace {

using Lock = std::lock_guard<std::mutex>;

// vsnprintf into the entry-sized buffer; a longer message is cut to kEntrySize - 1 characters.
unsigned int formatMessage(char* buffer, char const* format, va_list args)
{
    int const n = vsnprintf(buffer, LogEntryFormat::kEntrySize, format, args);
    if (n < 0) {
        buffer[0] = '\0';
        return 0;
    }
    size_t const length = static_cast<size_t>(n) < LogEntryFormat::kEntrySize
                              ? static_cast<size_t>(n)
                              : LogEntryFormat::kEntrySize - 1;
    return static_cast<unsigned int>(length);
}

RedisLoggerPimpl* construct(RedisLoggerPimpl* pimpl, redisContext* connection, bool subscribeConfig)
{
    try {
        pimpl->init(connection, subscribeConfig);
        if (subscribeConfig) {
            // A source's own record overrides the general one, so it is loaded second.
            pimpl->loadConfig("all");
            pimpl->loadConfig(pimpl->sourceName);
        }
    } catch (...) {
        delete pimpl;
        throw;
    }
    return pimpl;
}

} // namespace

RedisLogger::RedisLogger(char const* sourceName, char const* host, int port, char const* logKey,
                         bool subscribeConfig)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    auto* pimpl = new RedisLoggerPimpl(sourceName, host, port, nullptr, logKey);
    m_pimpl = construct(pimpl, redisConnect(host, port), subscribeConfig);
}

RedisLogger::RedisLogger(char const* sourceName, char const* unixSocketPath, char const* logKey,
                         bool subscribeConfig)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    auto* pimpl = new RedisLoggerPimpl(sourceName, nullptr, 0, unixSocketPath, logKey);
    m_pimpl = construct(pimpl, redisConnectUnix(unixSocketPath), subscribeConfig);
}

RedisLogger::~RedisLogger()
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    m_pimpl->unregister();
    delete m_pimpl;
}

int RedisLogger::log(Category category, char const* format, ...) const
{
    va_list args;
    va_start(args, format);
    int const result = logFormatted(category, false, format, args);
    va_end(args);
    return result;
}

int RedisLogger::logOnce(Category category, char const* format, ...) const
{
    va_list args;
    va_start(args, format);
    int const result = logFormatted(category, true, format, args);
    va_end(args);
    return result;
}

int RedisLogger::logFormatted(Category category, bool once, char const* format, va_list args) const
{
    if ((static_cast<unsigned int>(category) & m_pimpl->mask.load(std::memory_order_relaxed)) == 0)
        return 0;
    Lock lock(RedisLoggerPimpl::loggerMutex());
    char message[LogEntryFormat::kEntrySize];
    unsigned int const length = formatMessage(message, format, args);
    if (once && !RedisLoggerPimpl::firstTimeLogged(std::string(message, length)))
        return 0;
    // An empty message has length 0, which the entry write reads as "up to the zero": the same.
    return m_pimpl->logFixed(category, message, length, true);
}

int RedisLogger::logFixed(Category category, char const* message, unsigned int length)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    return m_pimpl->logFixed(category, message, length, true);
}

std::string RedisLogger::getSourceName() const
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    return m_pimpl->sourceName;
}

void RedisLogger::setSourceName(std::string name)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    m_pimpl->sourceName = std::move(name);
}

void RedisLogger::setConfig(unsigned int mask, int maxLogs, std::string const& segvRegex)
{
    // Under the lock, unlike a plain store, so that a write never sees a half-replaced expression.
    Lock lock(RedisLoggerPimpl::loggerMutex());
    m_pimpl->mask = mask;
    // As for a configuration text: a maximum below 1 or an expression that does not compile is kept
    // out, and said in an ERROR entry.
    if (maxLogs >= 1)
        m_pimpl->maxLogs = maxLogs;
    else
        m_pimpl->refuseConfig("Log configuration not applied: max logs(%d) is below 1", maxLogs);
    std::string error;
    if (!m_pimpl->segvRegex.set(segvRegex, error))
        m_pimpl->refuseConfig("Log configuration not applied: SigSegV Regexp(%s) does not compile: %s",
                              segvRegex.c_str(), error.c_str());
}

void RedisLogger::setConfigMask(unsigned int mask)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    m_pimpl->mask = mask;
}

char const* RedisLogger::getLoggerCfgKey()
{
    return "LOGGER:CFG";
}

bool RedisLogger::redisPushConfig(char const* json, unsigned int length)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    return m_pimpl->redisPushConfig(json, length);
}

bool RedisLogger::loadConfig(std::string& name)
{
    return m_pimpl->loadConfig(name);
}

bool RedisLogger::saveConfig(std::string& source, unsigned int mask, int maxLogs,
                             std::string const& segvRegex)
{
    return m_pimpl->saveConfig(source, mask, maxLogs, segvRegex, *this);
}

int RedisLogger::countLogs()
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    return m_pimpl->countLogs();
}

bool RedisLogger::deleteLogs()
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    return m_pimpl->deleteLogs();
}

bool RedisLogger::getLogEntriesFiltered(std::vector<std::map<std::string, std::string>>& entries, int first,
                                        int last, char const* filter)
{
    Lock lock(RedisLoggerPimpl::loggerMutex());
    auto* reply = static_cast<redisReply*>(m_pimpl->getLogEntriesFiltered(first, last, filter));
    if (reply == nullptr)
        return false;
    entries.clear();
    entries.reserve(reply->elements);
    for (size_t i = 0; i < reply->elements; ++i) {
        std::map<std::string, std::string> entry{
            {"T", "?"}, {"P", "?"}, {"C", "?"}, {"S", "?"}, {"M", "Unrecognized entry"}};
        redisReply const* element = reply->element[i];
        // An entry that is no JSON (one cut at 500 bytes, or garbage) also keeps its text, so that a
        // tool can show what it can read of it.
        if (element->str != nullptr && !RedisLoggerPimpl::json2Entry(entry, element->str))
            entry["raw"].assign(element->str, element->len);
        entries.push_back(std::move(entry));
    }
    freeReplyObject(reply);
    return true;
}

void RedisLogger::subscribeLatest(void (*callback)(std::map<std::string, std::string>&))
{
    m_pimpl->subscribeLatest(callback);
}

} // namespace Logger
} // namespace orv
