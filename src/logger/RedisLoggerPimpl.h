// The logger's private side: its Redis connection and settings, the entry write, and the
// process-wide state that all loggers share (lock, registry of configurable loggers, the thread
// that listens for configuration messages).
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "logger/CrashTrigger.h"
#include "logger/RedisLogger.h"

struct redisContext;
struct redisAsyncContext;
struct event_base;
struct event;

namespace orv {
namespace Logger {

class RedisLoggerPimpl
{
public:
    using Category = RedisLogger::Category;
    using Entry = std::map<std::string, std::string>;

    RedisLoggerPimpl(char const* sourceName, char const* host, int port, char const* unixSocketPath,
                     char const* logKey);
    ~RedisLoggerPimpl();

    RedisLoggerPimpl(RedisLoggerPimpl const&) = delete;
    RedisLoggerPimpl& operator=(RedisLoggerPimpl const&) = delete;

    // Takes over the connection; throws std::runtime_error when it is unusable. Registers for
    // configuration messages (starting the configuration thread if it is the first) when asked.
    void init(redisContext* connection, bool subscribeConfig);
    // Leaves the registry; the last one out stops the configuration thread.
    void unregister();

    // The entry write. Caller holds the logger mutex.
    int logFixed(Category category, char const* message, unsigned int length, bool checkMask);

    bool evaluateConfig(char const* json, bool announce);
    // Writes an ERROR entry, whatever the mask, about a configuration that is not applied.
    void refuseConfig(char const* format, ...) __attribute__((format(printf, 2, 3)));
    bool loadConfig(std::string const& name);
    bool saveConfig(std::string const& source, unsigned int mask, int maxLogs, std::string const& segvRegex,
                    RedisLogger const& logger);
    bool redisPushConfig(char const* json, unsigned int length);
    int countLogs();
    bool deleteLogs();
    // The Redis request behind a (filtered) read; the reply is the caller's to free, null if none.
    void* getLogEntriesFiltered(int first, int last, char const* filter);
    void subscribeLatest(void (*callback)(Entry&));

    static bool json2Entry(Entry& entry, char const* json);

    static void configThread(RedisLoggerPimpl* pimpl);
    static void configThreadCb(redisAsyncContext* context, void* reply, void* privateData);
    static void timerFunc(int fd, short what, void* arg);
    static void connectCallback(redisAsyncContext const* context, int status);
    static void disconnectCallback(redisAsyncContext const* context, int status);
    static void subCallback(redisAsyncContext* context, void* reply, void* privateData);

    // Process-wide lock over every logger operation. Never destroyed: loggers may outlive the
    // static objects of this library at process exit.
    static std::mutex& loggerMutex();
    // Remembers texts written by logOnce; caller holds the logger mutex. True the first time.
    static bool firstTimeLogged(std::string const& text);

    redisContext* context;
    std::string sourceName;
    std::string host;
    int port;
    std::string unixSocketPath;
    int pid;
    std::string logKey;
    CrashTrigger segvRegex; // the crash-trigger expression, compiled when it is set
    int maxLogs;
    // Read without the logger mutex, so that a call the mask filters out costs no lock.
    std::atomic<unsigned int> mask;

    static std::set<RedisLoggerPimpl*>* g_pimpls;
    static std::thread* g_configThread;
    static event_base* g_configEvLoop;
    static event* g_configTimer;

private:
    bool pushEntry(char const* entry, unsigned int length);
    void dropConnection();
    void crashIfMatches(char const* message) const;
    static void startConfigThread(RedisLoggerPimpl* pimpl);
    static void stopConfigThread();
};

} // namespace Logger
} // namespace orv
