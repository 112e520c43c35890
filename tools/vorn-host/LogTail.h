// The workbench's log: follows the log's channel and hands each new entry to the pages, with its
// wall-clock time; when Redis goes away it waits for it and follows again. The newest entries are
// read from the stored log when a page opens.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include <QJsonArray>
#include <QJsonObject>

#include "BootClock.h"
#include "EventHub.h"

namespace kslog {
class RedisLink;
}

namespace vornhost {

class LogTail
{
public:
    LogTail(std::string socket, EventHub& events);
    ~LogTail(); // stops following

    // The newest `count` stored entries, oldest first; throws std::runtime_error when Redis cannot
    // be read.
    QJsonArray newest(int count) const;
    // An entry as the page shows it: the logger's fields and "time"; a text that is no entry is
    // kept whole as its message.
    QJsonObject entryOf(std::string const& text) const;
    // Publishes a configuration change to every running logger; returns how many received it.
    long long configure(QJsonObject const& change) const;

private:
    void follow();

    std::string m_socket;
    EventHub& m_events;
    kslog::BootClock m_clock;
    std::atomic<bool> m_stop{false};
    std::mutex m_linkMutex;
    kslog::RedisLink* m_link = nullptr; // the subscribed connection, while there is one
    std::thread m_thread;               // last: started when everything it uses is in place
};

} // namespace vornhost
