// The plug-in's one logging facility: every entry is a short JSON text appended to a Redis list,
// trimmed, and published on a channel of the same name, where the log tools read and follow it.
#pragma once

#include <cstdarg>
#include <map>
#include <string>
#include <vector>

namespace orv {
namespace Logger {

class RedisLoggerPimpl;

class RedisLogger
{
public:
    // One bit per category, so that a set of categories is a mask.
    enum Category : unsigned int
    {
        DEBUG = 0x01,
        DIAG = 0x02,
        TRACE = 0x04,
        INFO = 0x08,
        WARN = 0x10,
        ERROR = 0x20,
        FATAL = 0x40,
        EMERG = 0x80,
    };

    // Both throw std::runtime_error when Redis cannot be reached.
    RedisLogger(char const* sourceName, char const* host, int port, char const* logKey, bool subscribeConfig);
    RedisLogger(char const* sourceName, char const* unixSocketPath, char const* logKey, bool subscribeConfig);
    virtual ~RedisLogger();

    RedisLogger(RedisLogger const&) = delete;
    RedisLogger& operator=(RedisLogger const&) = delete;

    // 0 when written, -1 when not; a message filtered by the mask is not even formatted.
    int log(Category category, char const* format, ...) const __attribute__((format(printf, 3, 4)));
    // Like log, but a given formatted text is written at most once per process.
    int logOnce(Category category, char const* format, ...) const __attribute__((format(printf, 3, 4)));
    // A ready message; length 0 means up to the terminating zero.
    int logFixed(Category category, char const* message, unsigned int length);

    std::string getSourceName() const;
    void setSourceName(std::string name);
    void setConfig(unsigned int mask, int maxLogs, std::string const& segvRegex);
    void setConfigMask(unsigned int mask);

    static char const* getLoggerCfgKey();

    // Configuration and queries, for the log tools.
    bool redisPushConfig(char const* json, unsigned int length);
    bool loadConfig(std::string& name);
    bool saveConfig(std::string& source, unsigned int mask, int maxLogs, std::string const& segvRegex);
    int countLogs();
    bool deleteLogs();
    bool getLogEntriesFiltered(std::vector<std::map<std::string, std::string>>& entries, int first, int last,
                               char const* filter);
    void subscribeLatest(void (*callback)(std::map<std::string, std::string>&));

private:
    // The body of log and logOnce: mask test first, so a filtered message is never formatted.
    int logFormatted(Category category, bool once, char const* format, va_list args) const;

    RedisLoggerPimpl* m_pimpl;
};

} // namespace Logger
} // namespace orv
