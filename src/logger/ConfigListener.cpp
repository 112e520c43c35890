// The thread that listens for configuration messages and hands them to every configurable logger.
#include "logger/RedisLoggerPimpl.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

#include <event2/event.h>
#include <event2/thread.h>
#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include "logger/RedisConnection.h"

namespace orv {
namespace Logger {

namespace {

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

} // namespace

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

void RedisLoggerPimpl::configThread(RedisLoggerPimpl* pimpl)
{
    signal(SIGPIPE, SIG_IGN);
    // Another thread wakes this loop to stop it (stopConfigThread), so libevent needs its locks.
    evthread_use_pthreads();
    event_base* base = event_base_new();
    AsyncState state;
    redisAsyncContext* async = subscribeAsync(*pimpl, base, state, configThreadCb, nullptr, kConfigChannel);
    if (async == nullptr) {
        event_base_free(base);
        signalStartDone(false);
        return;
    }

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

} // namespace Logger
} // namespace orv
