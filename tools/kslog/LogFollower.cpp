#include "LogFollower.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace kslog {
namespace {

// Short enough that little is missed after the server returns, long enough not to spin.
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{1000};

bool isMessage(redisReply const* reply)
{
    return reply->type == REDIS_REPLY_ARRAY && reply->elements == 3 &&
           reply->element[0]->type == REDIS_REPLY_STRING && strcmp(reply->element[0]->str, "message") == 0 &&
           reply->element[2]->type == REDIS_REPLY_STRING;
}

} // namespace

LogFollower::LogFollower(std::string socket, std::string channel, std::string filter, std::string who)
    : m_socket(std::move(socket)), m_channel(std::move(channel)), m_who(std::move(who))
{
    // The script the list query runs for each entry of a range, here for one entry.
    if (!filter.empty())
        m_script = "local entry = ARGV[1]\nif (" + filter + ") then return 1 end\nreturn 0";
}

LogFollower::~LogFollower() = default;

void LogFollower::checkFilter()
{
    if (m_script.empty())
        return;
    m_filter = std::make_unique<RedisLink>(m_socket);
    RedisLink::Reply const reply = m_filter->command(
        {"EVAL", m_script, "0", R"({"T":"0.0000", "P":"1", "C":"INFO", "S":"kslog", "M":"probe"})"});
    if (!reply)
        throw std::runtime_error("cannot reach Redis at " + m_socket + ": " + m_filter->error());
    if (reply->type == REDIS_REPLY_ERROR)
        throw std::runtime_error("the filter fails in the server (tried on a made-up entry): " +
                                 std::string(reply->str));
}

void LogFollower::run(Show const& show)
{
    bool lost = false;
    auto pause = kFirstPause;
    for (;;) {
        std::string why;
        if (open(why)) {
            if (lost)
                note("the log at " + m_socket + " is back; following again");
            lost = false;
            pause = kFirstPause;
            if (!follow(show, why))
                return;
        }
        if (!lost)
            note("lost the log at " + m_socket + " (" + why + "); waiting for it to come back");
        lost = true;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, kLongestPause);
    }
}

bool LogFollower::open(std::string& why)
{
    m_feed = std::make_unique<RedisLink>(m_socket);
    RedisLink::Reply const subscribed = m_feed->command({"SUBSCRIBE", m_channel});
    if (!subscribed) {
        why = m_feed->error();
        return false;
    }
    if (m_script.empty())
        return true;
    m_filter = std::make_unique<RedisLink>(m_socket);
    why = m_filter->ok() ? "" : m_filter->error();
    return m_filter->ok();
}

bool LogFollower::follow(Show const& show, std::string& why)
{
    for (;;) {
        RedisLink::Reply const reply = m_feed->next();
        if (!reply) {
            why = m_feed->error();
            return true;
        }
        if (!isMessage(reply.get()))
            continue;
        std::string const entry(reply->element[2]->str, reply->element[2]->len);
        std::optional<bool> const shown = passes(entry, why);
        if (!shown)
            return true;
        if (*shown && !show(entry))
            return false;
    }
}

std::optional<bool> LogFollower::passes(std::string const& entry, std::string& why)
{
    if (m_script.empty())
        return true;
    RedisLink::Reply const reply = m_filter->command({"EVAL", m_script, "0", entry});
    if (!reply) {
        why = m_filter->error();
        return std::nullopt;
    }
    if (reply->type == REDIS_REPLY_ERROR && !m_filterFailed) {
        // Said once: an expression that fails on some entries would otherwise flood the terminal.
        m_filterFailed = true;
        note("the filter failed on an entry, which is not shown (nor others it fails on): " +
             std::string(reply->str));
    }
    return reply->type == REDIS_REPLY_INTEGER && reply->integer == 1;
}

void LogFollower::note(std::string const& text) const
{
    fprintf(stderr, "%s: %s\n", m_who.c_str(), text.c_str());
    fflush(stderr);
}

} // namespace kslog
