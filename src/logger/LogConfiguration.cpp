// The log configuration: applying a configuration text, the permanent store and publishing one.
#include "logger/RedisLoggerPimpl.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <cjson/cJSON.h>
#include <hiredis/hiredis.h>

#include "core/Paths.h"
#include "logger/RedisConnection.h"

namespace orv {
namespace Logger {

namespace {

char const kPermanentConfigKey[] = "LOG:PERM:CFG";

struct ContextDeleter
{
    void operator()(redisContext* context) const { redisFree(context); }
};
using ContextPtr = std::unique_ptr<redisContext, ContextDeleter>;

// The second server that keeps the permanent configuration; null (and freed) when unusable.
ContextPtr connectPermanentStore()
{
    ContextPtr context(redisConnectUnix(Paths::redisSocket().c_str()));
    if (context && context->err != 0)
        context.reset();
    return context;
}

// A JSON number as an integer of the given range, without the undefined behaviour of converting a
// value beyond it (cJSON reads 1e400 as infinity).
long long saturated(double value, long long lowest, long long highest)
{
    if (std::isnan(value))
        return 0;
    if (value <= static_cast<double>(lowest))
        return lowest;
    if (value >= static_cast<double>(highest))
        return highest;
    return static_cast<long long>(value);
}

} // namespace

bool RedisLoggerPimpl::evaluateConfig(char const* json, bool announce)
{
    std::string newRegex = segvRegex.expression();
    int newMax = maxLogs;
    unsigned int newMask = mask;
    std::string matchedSource;
    bool pidGiven = false;
    int wantedPid = 0;

    cJSON* root = cJSON_Parse(json);
    if (root == nullptr) {
        printf("Received no valid JSON config?! (%s)\n", json);
        return false;
    }
    for (cJSON* member = root->child; member != nullptr; member = member->next) {
        if (member->string == nullptr)
            continue;
        std::string const name = member->string;
        if (name == "source" && cJSON_IsString(member)) {
            if (sourceName == member->valuestring)
                matchedSource = sourceName;
            else if (strcmp(member->valuestring, "all") == 0)
                matchedSource = "all";
        } else if (name == "pid" && cJSON_IsNumber(member)) {
            pidGiven = true;
            wantedPid = static_cast<int>(saturated(member->valuedouble, INT_MIN, INT_MAX));
        } else if (name == "mask" && cJSON_IsNumber(member)) {
            newMask = static_cast<unsigned int>(saturated(member->valuedouble, LLONG_MIN, LLONG_MAX));
        } else if (name == "max" && cJSON_IsNumber(member)) {
            newMax = static_cast<int>(saturated(member->valuedouble, INT_MIN, INT_MAX));
        } else if (name == "segvregex" && cJSON_IsString(member)) {
            newRegex = member->valuestring;
        }
    }
    cJSON_Delete(root);

    if (matchedSource != "all" && matchedSource != sourceName)
        return false;
    if (pidGiven && wantedPid != pid)
        return false;

    // A text that would break the logger is not applied at all: a "max" below 1 would leave the
    // list unbounded, an expression that does not compile would end the process at its next write.
    if (newMax < 1) {
        refuseConfig("Log configuration not applied: max logs(%d) is below 1", newMax);
        return false;
    }
    std::string error;
    if (!segvRegex.set(newRegex, error)) {
        refuseConfig("Log configuration not applied: SigSegV Regexp(%s) does not compile: %s",
                     newRegex.c_str(), error.c_str());
        return false;
    }
    maxLogs = newMax;
    mask = newMask;
    if (announce) {
        char text[128];
        snprintf(
            text, sizeof text,
            "Applying new log configuration: mask(0x%x), SigSegV Regexp(%s), max logs(%d), instance(0x%x)",
            mask.load(), segvRegex.expression().c_str(), maxLogs,
            static_cast<unsigned int>(reinterpret_cast<uintptr_t>(this)));
        logFixed(RedisLogger::INFO, text, 0, false);
    }
    return true;
}

bool RedisLoggerPimpl::loadConfig(std::string const& name)
{
    ContextPtr store = connectPermanentStore();
    if (!store) {
        // KEPT: the text names the other socket, as it always has.
        fprintf(stderr, "%s: Redis connection problem for connecting via %s\n", "loadConfig",
                "/tmp/redis-cache.sock");
        return false;
    }
    ReplyPtr reply = command(store.get(), "HGET %s %s", kPermanentConfigKey, name.c_str());
    if (!reply || reply->type != REDIS_REPLY_STRING)
        return false;
    return evaluateConfig(reply->str, false);
}

bool RedisLoggerPimpl::saveConfig(std::string const& source, unsigned int newMask, int newMax,
                                  std::string const& newRegex, RedisLogger const& logger)
{
    ContextPtr store = connectPermanentStore();
    if (!store) {
        fprintf(stderr, "%s: Redis connection problem for connecting via %s\n", "saveConfig",
                "/tmp/redis.sock");
        return false;
    }
    bool const maskStored = static_cast<int>(newMask) >= 0;
    if (source.empty() || (newRegex.empty() && !maskStored && newMax < 1)) {
        logger.log(RedisLogger::WARN, "%s: No log configuration to save ?", "saveConfig");
        return false;
    }

    std::string text = "{\n\"source\" : \"" + source + "\"\n";
    if (newMax > 0)
        text += ",\"max\" : " + std::to_string(newMax) + "\n";
    if (maskStored)
        text += ",\"mask\" : " + std::to_string(newMask) + "\n";
    if (!newRegex.empty())
        text += ",\"segvregex\" : \"" + newRegex + "\"\n";
    text += "}\n";

    ReplyPtr reply = command(store.get(), "HSET %s %s %s", kPermanentConfigKey, source.c_str(), text.c_str());
    // KEPT: Redis answers HSET with a number, so a successful store reports false.
    if (!reply || reply->type != REDIS_REPLY_STRING)
        return false;
    return evaluateConfig(reply->str, false);
}

bool RedisLoggerPimpl::redisPushConfig(char const* json, unsigned int length)
{
    if (context == nullptr) {
        fputs(kNotConnected, stderr);
        return false;
    }
    ReplyPtr reply = command(context, "PUBLISH %s %b", kConfigChannel, json, static_cast<size_t>(length));
    return reply != nullptr;
}

} // namespace Logger
} // namespace orv
