#include "AnswerWatch.h"

#include <cstdio>

namespace vornhost {

AnswerWatch::AnswerWatch() : m_thread([this] { watch(); }) {}

AnswerWatch::~AnswerWatch()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void AnswerWatch::open(std::string notice, std::chrono::milliseconds patience)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        ++m_request;
        m_notice = std::move(notice);
        m_deadline = std::chrono::steady_clock::now() + patience;
    }
    m_changed.notify_all();
}

void AnswerWatch::close()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = false;
    }
    m_changed.notify_all();
}

void AnswerWatch::watch()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ending) {
        if (!m_open) {
            m_changed.wait(lock);
            continue;
        }
        uint64_t const request = m_request;
        auto const answered = [this, request] { return m_ending || !m_open || m_request != request; };
        if (m_changed.wait_until(lock, m_deadline, answered))
            continue;
        // Printed under the lock: close() cannot return while the notice is being written, so it
        // never shows up after the answer's output.
        fprintf(stderr, "%s\n", m_notice.c_str());
        fflush(stderr);
        m_changed.wait(lock, answered);
    }
}

} // namespace vornhost
