// Says once on standard error what a request still waits for when its answer is late, so that the
// user of a call that blocks (a device service that does not answer holds it for the bus's 25 s)
// knows it is waiting rather than hanging. A request that answers in time leaves no trace.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace vornhost {

class AnswerWatch
{
public:
    AnswerWatch();
    ~AnswerWatch(); // ends the watching thread; no request may be open
    AnswerWatch(AnswerWatch const&) = delete;
    AnswerWatch& operator=(AnswerWatch const&) = delete;

    // A request went out: `notice` is printed if it is still open after `patience`.
    void open(std::string notice, std::chrono::milliseconds patience);
    // Its answer came. Once this returns, the request's notice is printed or never will be.
    void close();

private:
    void watch();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    bool m_ending = false;
    uint64_t m_request = 0; // counts the requests, so a late wake-up never speaks for a newer one
    std::string m_notice;
    std::chrono::steady_clock::time_point m_deadline;
    std::thread m_thread; // last: started when everything it reads is in place
};

} // namespace vornhost
