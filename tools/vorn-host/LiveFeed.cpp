#include "LiveFeed.h"

#include <cstring>
#include <set>

#include <QJsonDocument>

#include "core/ChunkHeader.h"
#include "core/CommandId.h"
#include "core/Paths.h"
#include "core/VornStatus.h"
#include "results/ResultKeys.h"
#include "results/VORNResultRecords.h"
#include "resultsync/FrameClient.h"
#include "resultsync/FrameDirectory.h"
#include "resultsync/FrameFormat.h"

namespace vornhost {

namespace {

constexpr std::chrono::seconds RateWindow{3};

bool succeeded(Reply const& reply)
{
    return !reply.empty() && reply.status() == orv::VornStatus::Success;
}

// The data of one key of the acquired result, copied out of the plug-in's memory; empty when
// the plug-in serves none.
QByteArray query(Plugin& plugin, std::string const& id, std::string const& key)
{
    orv::VORNQueryProcessData_t request{};
    key.copy(request.key, sizeof request.key - 1);
    id.copy(request.id, sizeof request.id - 1);
    Reply reply = plugin.call(orv::CommandId::QueryResultData, &request);
    if (!succeeded(reply) || reply.payload() == nullptr)
        return {};
    auto const record = reply.record<orv::VORNResultData_t>();
    if (record.data == nullptr)
        return {};
    return QByteArray(static_cast<char const*>(record.data), static_cast<int>(record.size));
}

// A chunk's payload without its 48-byte header.
QByteArray payloadOf(QByteArray const& chunk)
{
    return chunk.size() > int(sizeof(orv::ChunkHeader)) ? chunk.mid(sizeof(orv::ChunkHeader)) : QByteArray();
}

// The ids of the frames published and not yet taken.
std::set<std::string> waitingIds()
{
    std::set<std::string> ids;
    for (orv::resultsync::FrameFile const& file : orv::resultsync::FrameDirectory::list(
             orv::Paths::frameDir(), orv::resultsync::FrameFormat::FramePrefix))
        ids.insert(file.id);
    return ids;
}

} // namespace

LiveFeed::LiveFeed(PluginGate& gate, EventHub& events)
    : m_gate(gate), m_events(events), m_thread([this] { watch(); })
{}

LiveFeed::~LiveFeed()
{
    m_stop = true;
    m_thread.join();
}

void LiveFeed::watch()
{
    // Only looks: the plug-in takes each frame when it is acquired.
    orv::resultsync::FrameClient observer(false);
    while (!m_stop) {
        std::unique_ptr<orv::resultsync::Frame> frame = observer.waitForFrame(200);
        if (!frame)
            continue;
        std::vector<std::string> ids{frame->getId()};
        while ((frame = observer.waitForFrame(0)))
            ids.push_back(frame->getId());
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_newest = ids.back();
        }
        take(ids);
    }
}

void LiveFeed::take(std::vector<std::string> const& ids)
{
    Latest next;
    next.id = ids.back();
    uint64_t skipped = 0;
    std::string why;
    bool const used = m_gate.use(
        [&](Plugin& plugin) {
            // The plug-in takes the oldest waiting frame, whatever id it is asked for: a frame the
            // camera dropped before it was taken is not asked for, or every later answer would be
            // one frame off.
            std::set<std::string> const waiting = waitingIds();
            for (size_t i = 0; i + 1 < ids.size(); ++i, ++skipped) {
                if (waiting.count(ids[i]) == 0)
                    continue;
                plugin.call(orv::CommandId::AcquireResultId, ids[i].c_str());
                plugin.call(orv::CommandId::FreeResultId, ids[i].c_str());
            }
            if (waiting.count(next.id) == 0) {
                next.problem = "result " + next.id + " was taken or dropped before it could be read";
                return;
            }
            if (succeeded(plugin.call(orv::CommandId::AcquireResultId, next.id.c_str()))) {
                next.model = payloadOf(query(plugin, next.id, orv::ResultKeys::JsonModel));
                next.picture = payloadOf(query(plugin, next.id, orv::ResultKeys::AmplitudePicture));
                next.distance = query(plugin, next.id, orv::ResultKeys::DistanceImage);
            } else {
                next.problem = "result " + next.id + " could not be acquired: another client took it";
            }
            plugin.call(orv::CommandId::FreeResultId, next.id.c_str());
        },
        why);
    if (!used)
        next.problem = why;
    if (!next.problem.empty()) {
        // Nothing new to show: the page keeps the last result it could read, and the status says why.
        std::lock_guard<std::mutex> lock(m_mutex);
        m_skipped += skipped + 1;
        m_problem = next.problem;
        return;
    }
    QJsonObject summary;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto const now = std::chrono::steady_clock::now();
        m_arrivals.push_back(now);
        while (now - m_arrivals.front() > RateWindow)
            m_arrivals.pop_front();
        next.sequence = m_latest.sequence + 1;
        m_latest = std::move(next);
        m_skipped += skipped;
        m_problem.clear();
        summary = summaryLocked();
    }
    m_events.publish("result", QJsonDocument(summary).toJson(QJsonDocument::Compact).toStdString());
}

LiveFeed::Latest LiveFeed::latest() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_latest;
}

std::string LiveFeed::newest() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_newest;
}

QJsonObject LiveFeed::summaryLocked() const
{
    QJsonObject summary = countsLocked();
    QString const sequence = QString::number(m_latest.sequence);
    summary.insert("sequence", static_cast<qint64>(m_latest.sequence));
    summary.insert("model", QJsonDocument::fromJson(m_latest.model).object());
    summary.insert("picture",
                   m_latest.picture.isEmpty() ? QJsonValue() : "/api/live/amplitude.png?seq=" + sequence);
    summary.insert("distance",
                   m_latest.distance.isEmpty() ? QJsonValue() : "/api/live/distance?seq=" + sequence);
    return summary;
}

QJsonObject LiveFeed::summary() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return summaryLocked();
}

QJsonObject LiveFeed::countsLocked() const
{
    double rate = 0;
    bool const current =
        !m_arrivals.empty() && std::chrono::steady_clock::now() - m_arrivals.back() < RateWindow;
    if (current && m_arrivals.size() > 1) {
        std::chrono::duration<double> const span = m_arrivals.back() - m_arrivals.front();
        rate = span.count() > 0 ? double(m_arrivals.size() - 1) / span.count() : 0;
    }
    QJsonObject counts;
    counts.insert("results", static_cast<qint64>(m_latest.sequence));
    counts.insert("skipped", static_cast<qint64>(m_skipped));
    counts.insert("fps", qRound(rate * 10) / 10.0);
    counts.insert("id", m_latest.sequence == 0 ? QJsonValue() : QString::fromStdString(m_latest.id));
    if (!m_problem.empty())
        counts.insert("problem", QString::fromStdString(m_problem));
    return counts;
}

QJsonObject LiveFeed::counts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return countsLocked();
}

long long LiveFeed::age() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_arrivals.empty())
        return -1;
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 m_arrivals.back())
        .count();
}

} // namespace vornhost
