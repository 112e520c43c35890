#include "LogTail.h"

#include <memory>

#include <QJsonDocument>

#include "RedisLink.h"
#include "logger/RedisLogger.h"

namespace vornhost {

namespace {

constexpr char const* LogKey = "LOG:ENTRIES"; // the stored list and the channel it is published on

std::string textOf(redisReply const* reply)
{
    return reply != nullptr && reply->str != nullptr ? std::string(reply->str, reply->len) : std::string();
}

} // namespace

LogTail::LogTail(std::string socket, EventHub& events)
    : m_socket(std::move(socket)), m_events(events), m_clock(kslog::BootClock::now()),
      m_thread([this] { follow(); })
{}

LogTail::~LogTail()
{
    m_stop = true;
    {
        std::lock_guard<std::mutex> lock(m_linkMutex);
        if (m_link != nullptr)
            m_link->interrupt();
    }
    m_thread.join();
}

QJsonObject LogTail::entryOf(std::string const& text) const
{
    QJsonDocument const document = QJsonDocument::fromJson(QByteArray::fromStdString(text));
    QJsonObject entry = document.object();
    if (!document.isObject())
        entry = {{"C", "?"}, {"M", QString::fromStdString(text)}};
    entry.insert("time", QString::fromStdString(m_clock.local(entry.value("T").toString().toStdString())));
    return entry;
}

void LogTail::follow()
{
    while (!m_stop) {
        auto link = std::make_unique<kslog::RedisLink>(m_socket);
        kslog::RedisLink::Reply const subscribed = link->command({"SUBSCRIBE", LogKey});
        if (subscribed) {
            {
                std::lock_guard<std::mutex> lock(m_linkMutex);
                m_link = link.get();
            }
            while (!m_stop) {
                kslog::RedisLink::Reply const message = link->next();
                if (!message)
                    break;
                if (message->type == REDIS_REPLY_ARRAY && message->elements == 3 &&
                    textOf(message->element[0]) == "message")
                    m_events.publish("log", QJsonDocument(entryOf(textOf(message->element[2])))
                                                .toJson(QJsonDocument::Compact)
                                                .toStdString());
            }
            std::lock_guard<std::mutex> lock(m_linkMutex);
            m_link = nullptr;
        }
        // Gone or not there yet: look again shortly, as kslog's follow does.
        for (int i = 0; i < 10 && !m_stop; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

QJsonArray LogTail::newest(int count) const
{
    orv::Logger::RedisLogger logger("WORKBENCH", m_socket.c_str(), LogKey, false);
    std::vector<std::map<std::string, std::string>> entries;
    if (!logger.getLogEntriesFiltered(entries, -count, -1, nullptr))
        throw std::runtime_error("the log could not be read from Redis at " + m_socket);
    QJsonArray array;
    for (auto const& fields : entries) {
        QJsonObject entry;
        for (auto const& [name, value] : fields)
            entry.insert(QString::fromStdString(name), QString::fromStdString(value));
        entry.insert("time", QString::fromStdString(m_clock.local(fields.count("T") ? fields.at("T") : "")));
        array.append(entry);
    }
    return array;
}

long long LogTail::configure(QJsonObject const& change) const
{
    kslog::RedisLink link(m_socket);
    kslog::RedisLink::Reply const reply =
        link.command({"PUBLISH", orv::Logger::RedisLogger::getLoggerCfgKey(),
                      QJsonDocument(change).toJson(QJsonDocument::Compact).toStdString()});
    if (!reply || reply->type != REDIS_REPLY_INTEGER)
        throw std::runtime_error("the log configuration could not be published: " +
                                 (reply ? textOf(reply.get()) : link.error()));
    return reply->integer;
}

} // namespace vornhost
