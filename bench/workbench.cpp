// The workbench's live view, with results published by the benchmark like a camera publishes them:
//   ResultEvent           from a published result to its "result" event at a connected page
//                         vs  ResultEvent/baseline: the result cycle the server makes for it (acquire,
//                         the model, the picture with its ROIs and the distance image, free), made
//                         here through the loaded plug-in; at most 2x
//   ResultEvent.At30Hz    30 results a second for 10 s: the server's share of one core (at most 0.25),
//                         the events that reached the page, and how late the last one was
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>

#include <httplib.h>

#include <QtGlobal>

#include "BenchCamera.h"
#include "WorkbenchServer.h"
#include "results/ResultKeys.h"

using orv::bench::BenchCamera;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char Model[] =
    "{\"ApplicationIndex\": 1, \"model_001\": {\"ROIs\": {\"1\": {\"type\": \"Rect\", \"id\": 1, "
    "\"center_x\": 88, \"center_y\": 66, \"width\": 40, \"height\": 30, \"angle\": 0, \"state\": \"good\"}}, "
    "\"numGood\": 1}}";

// A page's event stream: when each result's event arrived.
class EventReader
{
public:
    explicit EventReader(std::string const& address)
        : m_client("http://" + address), m_thread([this] { read(); })
    {}
    ~EventReader()
    {
        m_stop = true;
        m_thread.join();
    }
    // When the event of result `id` came; waits up to 5 s for it.
    bool arrival(std::string const& id, Clock::time_point& when)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        bool const came =
            m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_arrivals.count(id) > 0; });
        if (came)
            when = m_arrivals[id];
        return came;
    }
    size_t count()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_arrivals.size();
    }

private:
    void read()
    {
        m_client.set_read_timeout(60, 0);
        m_client.Get("/api/events", [this](char const* data, size_t length) {
            Clock::time_point const now = Clock::now();
            m_text.append(data, length);
            for (size_t end; (end = m_text.find("\n\n")) != std::string::npos; m_text.erase(0, end + 2)) {
                std::string const event = m_text.substr(0, end);
                size_t const at = event.find("\"id\":\"");
                if (event.rfind("event: result", 0) != 0 || at == std::string::npos)
                    continue;
                std::string const id = event.substr(at + 6, event.find('"', at + 6) - at - 6);
                std::lock_guard<std::mutex> lock(m_mutex);
                m_arrivals.emplace(id, now);
                m_changed.notify_all();
            }
            return !m_stop;
        });
    }

    httplib::Client m_client;
    std::string m_text;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, Clock::time_point> m_arrivals;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

struct Fixture
{
    Fixture()
    {
        qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {});
    }
    std::string publish() { return camera.publishPictured(Model); }
    BenchCamera camera;
    // Started after the baseline: the server and the plug-in here would take each other's results.
    std::unique_ptr<orv::test::WorkbenchServer> server;
    std::unique_ptr<EventReader> reader;

    void serve()
    {
        if (server)
            return;
        server = std::make_unique<orv::test::WorkbenchServer>();
        reader = std::make_unique<EventReader>(server->address());
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the stream is open
    }
};

Fixture& fixture()
{
    static Fixture f;
    return f;
}

void Baseline(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        std::string const id = f.publish();
        Clock::time_point const start = Clock::now();
        bool ok = f.camera.acquire(id);
        for (char const* key :
             {orv::ResultKeys::JsonModel, orv::ResultKeys::AmplitudePicture, orv::ResultKeys::DistanceImage})
            ok = f.camera.query(key, id) && ok;
        ok = f.camera.free(id) && ok;
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (!ok)
            state.SkipWithError("the result cycle failed");
    }
}

void ResultEvent(benchmark::State& state)
{
    Fixture& f = fixture();
    f.serve();
    for (auto _ : state) {
        std::string const id = f.publish();
        Clock::time_point const start = Clock::now();
        Clock::time_point when;
        if (!f.reader->arrival(id, when)) {
            state.SkipWithError("no event for the result");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(when - start).count());
    }
    state.counters["at_most"] = 2.0;
}

double cpuSeconds(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    unsigned long long user = 0, system = 0;
    for (int i = 1; i <= 15 && stat >> field; ++i) {
        if (i == 14)
            user = std::stoull(field);
        if (i == 15)
            system = std::stoull(field);
    }
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

void At30Hz(benchmark::State& state)
{
    Fixture& f = fixture();
    f.serve();
    for (auto _ : state) {
        size_t const before = f.reader->count();
        double const cpuBefore = cpuSeconds(f.server->pid());
        Clock::time_point const start = Clock::now();
        std::string last;
        for (int i = 0; i < 300; ++i) {
            std::this_thread::sleep_until(start + std::chrono::microseconds(33333 * i));
            last = f.publish();
        }
        Clock::time_point const published = Clock::now();
        Clock::time_point when;
        bool const came = f.reader->arrival(last, when);
        double const wall = std::chrono::duration<double>(Clock::now() - start).count();
        state.counters["core_share"] = (cpuSeconds(f.server->pid()) - cpuBefore) / wall;
        state.counters["events"] = double(f.reader->count() - before);
        state.counters["last_late_ms"] =
            came ? std::chrono::duration<double, std::milli>(when - published).count() : -1;
    }
}

} // namespace

// The baseline first: the server starts with the first benchmark that needs it.
BENCHMARK(Baseline)
    ->Name("ResultEvent/baseline")
    ->UseManualTime()
    ->Iterations(200)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ResultEvent)->Name("ResultEvent")->UseManualTime()->Iterations(200)->Unit(benchmark::kMillisecond);
BENCHMARK(At30Hz)->Name("ResultEvent.At30Hz")->Iterations(1)->Repetitions(1)->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
