// The workbench's live view: watches the frame folder and, for each result the camera publishes,
// takes it through the plug-in as a client would (acquire, query, free). Only the newest counts:
// results that were already waiting behind it are acquired and freed unread, never queued, so a slow
// page or a fast camera cannot build a backlog.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <QByteArray>
#include <QJsonObject>

#include "EventHub.h"
#include "PluginGate.h"

namespace vornhost {

class LiveFeed
{
public:
    struct Latest
    {
        std::string id;
        uint64_t sequence = 0; // 0: nothing taken yet
        QByteArray model;      // the json_model text
        QByteArray picture;    // the amplitude PNG with the ROIs drawn
        QByteArray distance;   // the distance image's chunk: header and pixels
        std::string problem;   // why it could not be read
    };

    LiveFeed(PluginGate& gate, EventHub& events);
    ~LiveFeed(); // stops the watching thread

    Latest latest() const;
    // The id of the newest result the camera published, whether this feed or another client took
    // it; empty before the first. When another client takes most frames, the result shown can be
    // old enough for the camera to have dropped it from Redis; this one is still there.
    std::string newest() const;
    // The /api/live object (and the "result" event): id, sequence, rate, model and the URLs.
    QJsonObject summary() const;
    // Results taken, results skipped, results per second over the last seconds, the newest id.
    QJsonObject counts() const;
    // Milliseconds since the newest result came, or -1 before the first.
    long long age() const;

private:
    void watch();
    void take(std::vector<std::string> const& ids);
    QJsonObject summaryLocked() const;
    QJsonObject countsLocked() const;

    PluginGate& m_gate;
    EventHub& m_events;
    mutable std::mutex m_mutex;
    Latest m_latest;
    std::string m_newest;
    uint64_t m_skipped = 0; // acquired and freed unread, or not readable (m_problem says why)
    std::string m_problem;  // why the last result could not be read; empty once one is
    std::deque<std::chrono::steady_clock::time_point> m_arrivals; // of the last few seconds
    std::atomic<bool> m_stop{false};
    std::thread m_thread; // last: started when everything it uses is in place
};

} // namespace vornhost
