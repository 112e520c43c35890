#include "LoggerTestSupport.h"

#include <chrono>
#include <thread>

namespace orv {
namespace test {

std::string RedisLoggerTest::member(std::string const& entry, std::string const& key)
{
    std::string const start = "\"" + key + "\":\"";
    size_t begin = entry.find(start);
    if (begin == std::string::npos)
        return "<missing " + key + ">";
    begin += start.size();
    // The value ends at the first quote that is not escaped.
    std::string value;
    for (size_t i = begin; i < entry.size(); ++i) {
        if (entry[i] == '\\' && i + 1 < entry.size()) {
            value += entry[i];
            value += entry[++i];
        } else if (entry[i] == '"') {
            return value;
        } else {
            value += entry[i];
        }
    }
    return value;
}

void RedisLoggerTest::waitForSubscribers(char const* channel, long long n)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        RedisReply r = redis().command({"PUBSUB", "NUMSUB", channel});
        if (r.elements.size() == 2 && r.elements[1].integer >= n)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    FAIL() << "no subscriber on " << channel;
}

bool RedisLoggerTest::waitForEntries(long long n, int timeoutMs)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        if (redis().llen("LOG:ENTRIES") >= n)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

} // namespace test
} // namespace orv
