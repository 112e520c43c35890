// The workbench's live updates: each event gets the next number, and every connected page waits for
// the events after the last one it sent. Only the newest few are kept: a page that falls that far
// behind skips to them, so a slow reader never makes the server queue without end.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace vornhost {

class EventHub
{
public:
    struct Event
    {
        uint64_t number = 0;
        std::string name; // the Server-Sent Events "event:" field
        std::string data; // one line of JSON
    };

    explicit EventHub(size_t kept = 256) : m_kept(kept) {}

    void publish(std::string name, std::string data);
    // The events after `after` (all kept ones when older), waiting up to `ms` for one; empty on
    // time-out or once the hub is closed.
    std::vector<Event> after(uint64_t after, int ms);
    uint64_t newest() const;
    // Wakes every waiting reader for good: the server is ending.
    void close();
    bool closed() const;

private:
    size_t m_kept;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Event> m_events;
    uint64_t m_next = 1;
    bool m_closed = false;
};

} // namespace vornhost
