#include "EventHub.h"

#include <chrono>

namespace vornhost {

void EventHub::publish(std::string name, std::string data)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back({m_next++, std::move(name), std::move(data)});
        while (m_events.size() > m_kept)
            m_events.pop_front();
    }
    m_changed.notify_all();
}

std::vector<EventHub::Event> EventHub::after(uint64_t after, int ms)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::milliseconds(ms),
                       [&] { return m_closed || (!m_events.empty() && m_events.back().number > after); });
    std::vector<Event> events;
    if (m_closed)
        return events;
    for (Event const& event : m_events)
        if (event.number > after)
            events.push_back(event);
    return events;
}

uint64_t EventHub::newest() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_next - 1;
}

void EventHub::close()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }
    m_changed.notify_all();
}

bool EventHub::closed() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closed;
}

} // namespace vornhost
