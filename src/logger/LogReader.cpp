// The log reader: counting, deleting, reading (filtered) and following the entries of a log.
#include "logger/RedisLoggerPimpl.h"

#include <csignal>
#include <cstdio>

#include <cjson/cJSON.h>
#include <event2/event.h>
#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include "logger/RedisConnection.h"

namespace orv {
namespace Logger {

int RedisLoggerPimpl::countLogs()
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return 0;
    }
    ReplyPtr reply = command(context, "LLEN %s", logKey.c_str());
    if (!reply || reply->type != REDIS_REPLY_INTEGER)
        return 0;
    return static_cast<int>(reply->integer);
}

bool RedisLoggerPimpl::deleteLogs()
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return false;
    }
    ReplyPtr reply = command(context, "DEL %s", logKey.c_str());
    return reply != nullptr;
}

void* RedisLoggerPimpl::getLogEntriesFiltered(int first, int last, char const* filter)
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return nullptr;
    }
    if (context->err != 0)
        return nullptr;

    ReplyPtr reply;
    if (filter == nullptr) {
        reply = command(context, "LRANGE %s %d %d", logKey.c_str(), first, last);
        if (reply && reply->type == REDIS_REPLY_ERROR)
            // KEPT: without a line break, as the text has always been.
            fprintf(stderr, "%s: %s(LRANGE %s %d %d)", "getLogEntries", reply->str, logKey.c_str(), first,
                    last);
    } else {
        // The filter is a Lua expression over `entry`, run inside the server over the whole range.
        char script[4096];
        int n = snprintf(script, sizeof script,
                         "local entries=redis.call('LRANGE', '%s', '%d', '%d')\n"
                         "    local b={};    for i=1,#entries do    local entry = entries[i];"
                         "    if (%s) then    b[#b+1] = entry;    end;    end;    return b;",
                         logKey.c_str(), first, last, filter);
        size_t const length = n < 0 ? 0 : (static_cast<size_t>(n) < sizeof script ? n : sizeof script - 1);
        reply = command(context, "EVAL %b 0", script, length);
        if (reply && reply->type == REDIS_REPLY_ERROR)
            fprintf(stderr, "%s: %s(%s)\n", "getLogEntriesFiltered", reply->str, script);
    }
    if (!reply || reply->type != REDIS_REPLY_ARRAY)
        return nullptr;
    return reply.release();
}

bool RedisLoggerPimpl::json2Entry(Entry& entry, char const* json)
{
    cJSON* root = cJSON_Parse(json);
    if (root == nullptr)
        return false;
    for (cJSON* member = root->child; member != nullptr; member = member->next) {
        if (member->string == nullptr)
            continue;
        if (cJSON_IsString(member)) {
            entry[member->string] = member->valuestring;
        } else {
            // Entries are all strings; anything else is kept as its JSON text.
            char* text = cJSON_PrintUnformatted(member);
            entry[member->string] = text != nullptr ? text : "";
            cJSON_free(text);
        }
    }
    cJSON_Delete(root);
    return true;
}

void RedisLoggerPimpl::subscribeLatest(void (*callback)(Entry&))
{
    signal(SIGPIPE, SIG_IGN);
    // The base is made, run and freed in this thread alone: libevent needs no locks for it.
    event_base* base = event_base_new();
    AsyncState state;
    redisAsyncContext* async =
        subscribeAsync(*this, base, state, subCallback, reinterpret_cast<void*>(callback), logKey.c_str());
    if (async != nullptr) {
        event_base_dispatch(base);
        if (state.alive)
            redisAsyncFree(async);
    }
    event_base_free(base);
}

void RedisLoggerPimpl::subCallback(redisAsyncContext*, void* replyData, void* privateData)
{
    auto const* reply = static_cast<redisReply const*>(replyData);
    if (!isMessage(reply) || privateData == nullptr)
        return;
    Entry entry;
    if (!json2Entry(entry, reply->element[2]->str))
        entry["raw"].assign(reply->element[2]->str, reply->element[2]->len);
    reinterpret_cast<void (*)(Entry&)>(privateData)(entry);
}

} // namespace Logger
} // namespace orv
