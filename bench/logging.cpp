// The logger against the server's own floor:
//   Log.Entry      one entry written (list, trim, publish)  vs  a raw hiredis loop sending the same
//                                                              three commands with the same entry
//   Log.MaskedOut  a call whose category the mask filters out (nanoseconds; nothing is formatted)
#include <benchmark/benchmark.h>

#include <hiredis/hiredis.h>

#include "RedisServer.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;

namespace {

constexpr char LogKey[] = "LOG:ENTRIES";

struct Fixture
{
    orv::test::RedisServer redis;
    RedisLogger logger{"BENCH", redis.socketPath().c_str(), LogKey, false};
};

Fixture& fixture()
{
    static Fixture f;
    return f;
}

void Entry(benchmark::State& state)
{
    RedisLogger& logger = fixture().logger;
    logger.setConfig(0xFF, 10000, "");
    int i = 0;
    for (auto _ : state) {
        if (logger.log(RedisLogger::INFO, "%s: acquired result %d", "bench", ++i) != 0) {
            state.SkipWithError("the entry was not written");
            break;
        }
    }
    // Speed, not time: the logger must keep at least this share of the raw loop's rate.
    state.counters["speed_at_least"] = 0.9;
}

void EntryBaseline(benchmark::State& state)
{
    Fixture& f = fixture();
    f.logger.setConfig(0xFF, 10000, "");
    f.logger.log(RedisLogger::INFO, "%s: acquired result %d", "bench", 1);
    std::string const entry = f.redis.lrange(LogKey, -1, -1).at(0);
    redisContext* context = redisConnectUnix(f.redis.socketPath().c_str());
    for (auto _ : state) {
        redisAppendCommand(context, "RPUSH %s %b", LogKey, entry.data(), entry.size());
        redisAppendCommand(context, "LTRIM %s -%d -1", LogKey, 10000);
        redisAppendCommand(context, "PUBLISH %s %b", LogKey, entry.data(), entry.size());
        for (int i = 0; i < 3; ++i) {
            void* reply = nullptr;
            if (redisGetReply(context, &reply) != REDIS_OK) {
                state.SkipWithError("the raw loop lost its server");
                break;
            }
            freeReplyObject(reply);
        }
    }
    redisFree(context);
}

void MaskedOut(benchmark::State& state)
{
    RedisLogger& logger = fixture().logger;
    logger.setConfig(RedisLogger::ERROR, 10000, "");
    int i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(logger.log(RedisLogger::DEBUG, "%s: acquired result %d", "bench", ++i));
    logger.setConfig(0xFF, 10000, "");
    state.counters["at_most_ns"] = 10;
}

} // namespace

BENCHMARK(Entry)->Name("Log.Entry")->Unit(benchmark::kMicrosecond);
BENCHMARK(EntryBaseline)->Name("Log.Entry/baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(MaskedOut)->Name("Log.MaskedOut")->Unit(benchmark::kNanosecond);

BENCHMARK_MAIN();
