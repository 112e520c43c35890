#include "logger/RedisLoggerPimpl.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include <cjson/cJSON.h>
#include <event2/event.h>
#include <event2/thread.h>
#include <hiredis/adapters/libevent.h>
#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include "core/Paths.h"
#include "logger/LogEntryFormat.h"

namespace orv {
namespace Logger {

std::set<RedisLoggerPimpl*>* RedisLoggerPimpl::g_pimpls = nullptr;
std::thread* RedisLoggerPimpl::g_configThread = nullptr;
event_base* RedisLoggerPimpl::g_configEvLoop = nullptr;
event* RedisLoggerPimpl::g_configTimer = nullptr;

namespace {

char const kConfigChannel[] = "LOGGER:CFG";
char const kPermanentConfigKey[] = "LOG:PERM:CFG";
char const kNotConnected[] = "REDIS NOT CONNECTED !n";

// Read by the configuration thread's timer, written by the constructor and the last destructor.
std::atomic<bool> g_threadStarted{false};

// The start-up handshake between a constructor and the configuration thread it started.
struct StartHandshake
{
    std::mutex mutex;
    std::condition_variable ready;
    bool done = false; // the thread either runs its loop now or has given up
};

StartHandshake& startHandshake()
{
    static auto* handshake = new StartHandshake;
    return *handshake;
}

void signalStartDone(bool started)
{
    StartHandshake& h = startHandshake();
    std::lock_guard<std::mutex> lock(h.mutex);
    g_threadStarted = started;
    h.done = true;
    h.ready.notify_all();
}

struct ReplyDeleter
{
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using ReplyPtr = std::unique_ptr<redisReply, ReplyDeleter>;

ReplyPtr command(redisContext* context, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    void* reply = redisvCommand(context, format, args);
    va_end(args);
    return ReplyPtr(static_cast<redisReply*>(reply));
}

struct ContextDeleter
{
    void operator()(redisContext* context) const { redisFree(context); }
};
using ContextPtr = std::unique_ptr<redisContext, ContextDeleter>;

// The second server that keeps the permanent configuration; null (and freed) when unusable.
ContextPtr connectPermanentStore()
{
    ContextPtr context(redisConnectUnix(Paths::redisSocket().c_str()));
    if (context && context->err != 0)
        context.reset();
    return context;
}

// Set on an asynchronous connection's data so the owner knows whether hiredis has already freed it.
struct AsyncState
{
    bool alive = true;
};

redisAsyncContext* connectAsync(RedisLoggerPimpl const& pimpl)
{
    if (pimpl.port == 0)
        return redisAsyncConnectUnix(pimpl.unixSocketPath.c_str());
    return redisAsyncConnect(pimpl.host.c_str(), pimpl.port);
}

// A JSON number as an integer of the given range, without the undefined behaviour of converting a
// value beyond it (cJSON reads 1e400 as infinity).
long long saturated(double value, long long lowest, long long highest)
{
    if (std::isnan(value))
        return 0;
    if (value <= static_cast<double>(lowest))
        return lowest;
    if (value >= static_cast<double>(highest))
        return highest;
    return static_cast<long long>(value);
}

bool isMessage(redisReply const* reply)
{
    return reply != nullptr && reply->type == REDIS_REPLY_ARRAY && reply->elements == 3 &&
           reply->element[0]->type == REDIS_REPLY_STRING && strcmp(reply->element[0]->str, "message") == 0 &&
           reply->element[2]->str != nullptr;
}

} // namespace

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

void RedisLoggerPimpl::startConfigThread(RedisLoggerPimpl* pimpl)
{
    StartHandshake& h = startHandshake();
    std::unique_lock<std::mutex> lock(h.mutex);
    h.done = false;
    g_configThread = new std::thread(configThread, pimpl);
    h.ready.wait(lock, [&h] { return h.done; });
    if (!g_threadStarted) {
        // It could not connect and has ended; loggers then simply keep their start-up settings.
        lock.unlock();
        g_configThread->join();
        delete g_configThread;
        g_configThread = nullptr;
    }
}

void RedisLoggerPimpl::stopConfigThread()
{
    if (g_configThread == nullptr || g_configEvLoop == nullptr)
        return;
    g_threadStarted = false;
    // Wake the timer now rather than waiting for its next tick; it sees the flag and ends the loop.
    event_active(g_configTimer, EV_TIMEOUT, 1);
    g_configThread->join();
    delete g_configThread;
    g_configThread = nullptr;
    g_configEvLoop = nullptr;
    g_configTimer = nullptr;
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

// ---------------------------------------------------------------------------------------------
// Configuration

bool RedisLoggerPimpl::evaluateConfig(char const* json, bool announce)
{
    std::string newRegex = segvRegex.expression();
    int newMax = maxLogs;
    unsigned int newMask = mask;
    std::string matchedSource;
    bool pidGiven = false;
    int wantedPid = 0;

    cJSON* root = cJSON_Parse(json);
    if (root == nullptr) {
        printf("Received no valid JSON config?! (%s)\n", json);
        return false;
    }
    for (cJSON* member = root->child; member != nullptr; member = member->next) {
        if (member->string == nullptr)
            continue;
        std::string const name = member->string;
        if (name == "source" && cJSON_IsString(member)) {
            if (sourceName == member->valuestring)
                matchedSource = sourceName;
            else if (strcmp(member->valuestring, "all") == 0)
                matchedSource = "all";
        } else if (name == "pid" && cJSON_IsNumber(member)) {
            pidGiven = true;
            wantedPid = static_cast<int>(saturated(member->valuedouble, INT_MIN, INT_MAX));
        } else if (name == "mask" && cJSON_IsNumber(member)) {
            newMask = static_cast<unsigned int>(saturated(member->valuedouble, LLONG_MIN, LLONG_MAX));
        } else if (name == "max" && cJSON_IsNumber(member)) {
            newMax = static_cast<int>(saturated(member->valuedouble, INT_MIN, INT_MAX));
        } else if (name == "segvregex" && cJSON_IsString(member)) {
            newRegex = member->valuestring;
        }
    }
    cJSON_Delete(root);

    if (matchedSource != "all" && matchedSource != sourceName)
        return false;
    if (pidGiven && wantedPid != pid)
        return false;

    // A text that would break the logger is not applied at all: a "max" below 1 would leave the
    // list unbounded, an expression that does not compile would end the process at its next write.
    if (newMax < 1) {
        refuseConfig("Log configuration not applied: max logs(%d) is below 1", newMax);
        return false;
    }
    std::string error;
    if (!segvRegex.set(newRegex, error)) {
        refuseConfig("Log configuration not applied: SigSegV Regexp(%s) does not compile: %s",
                     newRegex.c_str(), error.c_str());
        return false;
    }
    maxLogs = newMax;
    mask = newMask;
    if (announce) {
        char text[128];
        snprintf(
            text, sizeof text,
            "Applying new log configuration: mask(0x%x), SigSegV Regexp(%s), max logs(%d), instance(0x%x)",
            mask.load(), segvRegex.expression().c_str(), maxLogs,
            static_cast<unsigned int>(reinterpret_cast<uintptr_t>(this)));
        logFixed(RedisLogger::INFO, text, 0, false);
    }
    return true;
}

bool RedisLoggerPimpl::loadConfig(std::string const& name)
{
    ContextPtr store = connectPermanentStore();
    if (!store) {
        // Names the other socket, as this text always has.
        fprintf(stderr, "%s: Redis connection problem for connecting via %s\n", "loadConfig",
                "/tmp/redis-cache.sock");
        return false;
    }
    ReplyPtr reply = command(store.get(), "HGET %s %s", kPermanentConfigKey, name.c_str());
    if (!reply || reply->type != REDIS_REPLY_STRING)
        return false;
    return evaluateConfig(reply->str, false);
}

bool RedisLoggerPimpl::saveConfig(std::string const& source, unsigned int newMask, int newMax,
                                  std::string const& newRegex, RedisLogger const& logger)
{
    ContextPtr store = connectPermanentStore();
    if (!store) {
        fprintf(stderr, "%s: Redis connection problem for connecting via %s\n", "saveConfig",
                "/tmp/redis.sock");
        return false;
    }
    bool const maskStored = static_cast<int>(newMask) >= 0;
    if (source.empty() || (newRegex.empty() && !maskStored && newMax < 1)) {
        logger.log(RedisLogger::WARN, "%s: No log configuration to save ?", "saveConfig");
        return false;
    }

    std::string text = "{\n\"source\" : \"" + source + "\"\n";
    if (newMax > 0)
        text += ",\"max\" : " + std::to_string(newMax) + "\n";
    if (maskStored)
        text += ",\"mask\" : " + std::to_string(newMask) + "\n";
    if (!newRegex.empty())
        text += ",\"segvregex\" : \"" + newRegex + "\"\n";
    text += "}\n";

    ReplyPtr reply = command(store.get(), "HSET %s %s %s", kPermanentConfigKey, source.c_str(), text.c_str());
    // Redis answers HSET with a number, so a successful store reports false; see docs/decisions.md.
    if (!reply || reply->type != REDIS_REPLY_STRING)
        return false;
    return evaluateConfig(reply->str, false);
}

bool RedisLoggerPimpl::redisPushConfig(char const* json, unsigned int length)
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return false;
    }
    ReplyPtr reply = command(context, "PUBLISH %s %b", kConfigChannel, json, static_cast<size_t>(length));
    return reply != nullptr;
}

// ---------------------------------------------------------------------------------------------
// Configuration thread

void RedisLoggerPimpl::configThread(RedisLoggerPimpl* pimpl)
{
    signal(SIGPIPE, SIG_IGN);
    redisAsyncContext* async = connectAsync(*pimpl);
    if (async == nullptr || async->err != 0) {
        fprintf(stderr, "Error: %s\n", async != nullptr ? async->errstr : "cannot allocate connection");
        if (async != nullptr)
            redisAsyncFree(async);
        signalStartDone(false);
        return;
    }
    AsyncState state;
    async->data = &state;

    evthread_use_pthreads();
    event_base* base = event_base_new();
    redisLibeventAttach(async, base);
    redisAsyncSetConnectCallback(async, connectCallback);
    redisAsyncSetDisconnectCallback(async, disconnectCallback);
    redisAsyncCommand(async, configThreadCb, nullptr, "SUBSCRIBE %s", kConfigChannel);

    event* timer = event_new(base, -1, EV_PERSIST, timerFunc, nullptr);
    timeval const second{1, 0};
    event_add(timer, &second);
    g_configEvLoop = base;
    g_configTimer = timer;
    signalStartDone(true);

    event_base_dispatch(base);

    if (state.alive)
        redisAsyncFree(async);
    event_free(timer);
    event_base_free(base);
}

void RedisLoggerPimpl::configThreadCb(redisAsyncContext*, void* replyData, void*)
{
    auto const* reply = static_cast<redisReply const*>(replyData);
    if (!isMessage(reply))
        return;
    // The last logger's destructor holds the lock while it waits for this thread to end; give up
    // on the message then instead of waiting for a lock that is not released before we return.
    std::mutex& mutex = loggerMutex();
    while (!mutex.try_lock()) {
        if (!g_threadStarted)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::lock_guard<std::mutex> lock(mutex, std::adopt_lock);
    if (g_pimpls == nullptr)
        return;
    for (RedisLoggerPimpl* pimpl : *g_pimpls)
        pimpl->evaluateConfig(reply->element[2]->str, true);
}

void RedisLoggerPimpl::timerFunc(int, short, void*)
{
    if (!g_threadStarted)
        event_base_loopbreak(g_configEvLoop);
}

void RedisLoggerPimpl::connectCallback(redisAsyncContext const* context, int status)
{
    if (status == REDIS_OK)
        return;
    printf("Error: %s\n", context->errstr);
    if (context->data != nullptr)
        static_cast<AsyncState*>(context->data)->alive = false;
}

void RedisLoggerPimpl::disconnectCallback(redisAsyncContext const* context, int status)
{
    // hiredis frees the connection after this call, whatever the status.
    if (context->data != nullptr)
        static_cast<AsyncState*>(context->data)->alive = false;
    if (status != REDIS_OK)
        printf("Error: %s\n", context->errstr);
}

// ---------------------------------------------------------------------------------------------
// Queries

int RedisLoggerPimpl::countLogs()
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return 0;
    }
    ReplyPtr reply = command(context, "LLEN %s", logKey.c_str());
    if (!reply || reply->type != REDIS_REPLY_INTEGER)
        return 0;
    return static_cast<int>(reply->integer);
}

bool RedisLoggerPimpl::deleteLogs()
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return false;
    }
    ReplyPtr reply = command(context, "DEL %s", logKey.c_str());
    return reply != nullptr;
}

void* RedisLoggerPimpl::getLogEntriesFiltered(int first, int last, char const* filter)
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return nullptr;
    }
    if (context->err != 0)
        return nullptr;

    ReplyPtr reply;
    if (filter == nullptr) {
        reply = command(context, "LRANGE %s %d %d", logKey.c_str(), first, last);
        if (reply && reply->type == REDIS_REPLY_ERROR)
            fprintf(stderr, "%s: %s(LRANGE %s %d %d)", "getLogEntries", reply->str, logKey.c_str(), first,
                    last);
    } else {
        // The filter is a Lua expression over `entry`, run inside the server over the whole range.
        char script[4096];
        int n = snprintf(script, sizeof script,
                         "local entries=redis.call('LRANGE', '%s', '%d', '%d')\n"
                         "    local b={};    for i=1,#entries do    local entry = entries[i];"
                         "    if (%s) then    b[#b+1] = entry;    end;    end;    return b;",
                         logKey.c_str(), first, last, filter);
        size_t const length = n < 0 ? 0 : (static_cast<size_t>(n) < sizeof script ? n : sizeof script - 1);
        reply = command(context, "EVAL %b 0", script, length);
        if (reply && reply->type == REDIS_REPLY_ERROR)
            fprintf(stderr, "%s: %s(%s)\n", "getLogEntriesFiltered", reply->str, script);
    }
    if (!reply || reply->type != REDIS_REPLY_ARRAY)
        return nullptr;
    return reply.release();
}

bool RedisLoggerPimpl::json2Entry(Entry& entry, char const* json)
{
    cJSON* root = cJSON_Parse(json);
    if (root == nullptr)
        return false;
    for (cJSON* member = root->child; member != nullptr; member = member->next) {
        if (member->string == nullptr)
            continue;
        if (cJSON_IsString(member)) {
            entry[member->string] = member->valuestring;
        } else {
            // Entries are all strings; anything else is kept as its JSON text.
            char* text = cJSON_PrintUnformatted(member);
            entry[member->string] = text != nullptr ? text : "";
            cJSON_free(text);
        }
    }
    cJSON_Delete(root);
    return true;
}

void RedisLoggerPimpl::subscribeLatest(void (*callback)(Entry&))
{
    signal(SIGPIPE, SIG_IGN);
    evthread_use_pthreads();
    event_base* base = event_base_new();
    redisAsyncContext* async = connectAsync(*this);
    if (async == nullptr || async->err != 0) {
        fprintf(stderr, "Error: %s\n", async != nullptr ? async->errstr : "cannot allocate connection");
        if (async != nullptr)
            redisAsyncFree(async);
        event_base_free(base);
        return;
    }
    AsyncState state;
    async->data = &state;
    redisLibeventAttach(async, base);
    redisAsyncSetConnectCallback(async, connectCallback);
    redisAsyncSetDisconnectCallback(async, disconnectCallback);
    redisAsyncCommand(async, subCallback, reinterpret_cast<void*>(callback), "SUBSCRIBE %s", logKey.c_str());

    event_base_dispatch(base);

    if (state.alive)
        redisAsyncFree(async);
    event_base_free(base);
}

void RedisLoggerPimpl::subCallback(redisAsyncContext*, void* replyData, void* privateData)
{
    auto const* reply = static_cast<redisReply const*>(replyData);
    if (!isMessage(reply) || privateData == nullptr)
        return;
    Entry entry;
    if (!json2Entry(entry, reply->element[2]->str))
        entry["raw"].assign(reply->element[2]->str, reply->element[2]->len);
    reinterpret_cast<void (*)(Entry&)>(privateData)(entry);
}

} // namespace Logger
} // namespace orv
