#include "Workbench.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>
#include <thread>
#include <unistd.h>

#include <httplib.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include "RedisLink.h"
#include "core/Paths.h"
#include "logger/RedisLogger.h"

namespace vornhost {

namespace {

constexpr size_t BodyLimit = 1 << 20;
constexpr char const* TokenHeader = "X-Workbench-Token";

std::string jsonText(QJsonObject const& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

void answer(httplib::Response& response, QJsonObject const& object, int status = 200)
{
    response.status = status;
    response.set_content(jsonText(object), "application/json");
}

void refuse(httplib::Response& response, int status, std::string const& why)
{
    answer(response, {{"error", QString::fromStdString(why)}}, status);
}

void answer(httplib::Response& response, PluginGate::Answer const& result)
{
    answer(response, result.body, result.status);
}

// A change's answer: the plug-in's failure status is the gateway's failure.
void answerChange(httplib::Response& response, PluginGate::Answer const& result)
{
    answer(response, result.body, result.status == 200 && result.exitCode != 0 ? 502 : result.status);
}

// The request's JSON object; false (and the response says why) when it is none.
bool bodyOf(httplib::Request const& request, httplib::Response& response, QJsonObject& body)
{
    QJsonParseError error{};
    QJsonDocument const document = QJsonDocument::fromJson(QByteArray::fromStdString(request.body), &error);
    if (error.error != QJsonParseError::NoError) {
        refuse(response, 400,
               "the body is no JSON: " + error.errorString().toStdString() + " at byte " +
                   std::to_string(error.offset));
        return false;
    }
    if (!document.isObject()) {
        refuse(response, 400, "the body is a JSON object, as {\"name\": value}");
        return false;
    }
    body = document.object();
    return true;
}

// An integer field of the body within [low, high]; false (and the response says why) otherwise.
bool integerOf(QJsonObject const& body, char const* name, int low, int high, httplib::Response& response,
               int& value)
{
    QJsonValue const field = body.value(name);
    double const number = field.toDouble(-1e300);
    if (!field.isDouble() || number != double(int(number)) || number < low || number > high) {
        refuse(response, 400,
               std::string("\"") + name + "\" is a whole number from " + std::to_string(low) + " to " +
                   std::to_string(high));
        return false;
    }
    value = int(number);
    return true;
}

std::string randomToken()
{
    std::random_device random;
    std::string token;
    for (int i = 0; i < 4; ++i) {
        char part[9];
        snprintf(part, sizeof part, "%08x", random());
        token += part;
    }
    return token;
}

bool isLoopback(std::string const& host)
{
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

QJsonObject check(bool ok, std::string const& detail)
{
    return {{"ok", ok}, {"detail", QString::fromStdString(detail)}};
}

QJsonObject redisStatus()
{
    std::string const socket = orv::Paths::redisCacheSocket();
    kslog::RedisLink link(socket);
    kslog::RedisLink::Reply const reply = link.command({"PING"});
    if (reply && reply->type == REDIS_REPLY_STATUS)
        return check(true, "Redis answers at " + socket);
    return check(false, "Redis does not answer at " + socket + ": " + link.error() +
                            " (the results, the log and the plug-in need it)");
}

// Whether the bus's socket takes a connection: enough to say that the bus is there, without a bus
// library's connection (and its locks) in a thread that only looks.
QJsonObject busStatus()
{
    char const* address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    std::string path = address != nullptr ? address : "unix:path=/var/run/dbus/system_bus_socket";
    std::string const prefix = "unix:path=";
    if (path.rfind(prefix, 0) != 0)
        return check(true, "the system bus is at " + path + ", which is not looked at here");
    path = path.substr(prefix.size(), path.find(',') == std::string::npos ? std::string::npos
                                                                          : path.find(',') - prefix.size());
    std::string why;
    bool const reachable = socketAccepts(path, why);
    if (!reachable)
        return check(false, "the system bus cannot be reached at " + path + ": " + why +
                                " (applications, I/O and triggers need it)");
    return check(true, "the system bus answers at " + path);
}

} // namespace

// Looks at Redis, the bus, the plug-in and the camera once a second and tells the pages what changed;
// trying the plug-in again is what brings it back once Redis is there.
struct Workbench::Watcher
{
    std::mutex mutex;
    std::condition_variable wake;
    bool stop = false;
    QJsonObject last;
    std::thread thread;
};

Workbench::Workbench(Settings settings)
    : m_settings(std::move(settings)), m_loopback(isLoopback(m_settings.host)), m_gate(m_settings.plugin),
      m_server(std::make_unique<httplib::Server>())
{
    if (m_settings.token.empty())
        m_settings.token = randomToken();
    char scratch[] = "/tmp/vorn-workbench-XXXXXX";
    if (mkdtemp(scratch) == nullptr)
        throw std::runtime_error("cannot make a scratch folder in /tmp");
    m_scratch = scratch;
    // A page keeps one connection open for its events: room for a few pages and their requests.
    m_server->new_task_queue = [] { return new httplib::ThreadPool(32); };
    m_server->set_payload_max_length(BodyLimit);
    m_server->set_keep_alive_timeout(5);
    routes();
}

Workbench::~Workbench()
{
    stop();
    if (m_watcher) {
        {
            std::lock_guard<std::mutex> lock(m_watcher->mutex);
            m_watcher->stop = true;
        }
        m_watcher->wake.notify_all();
        m_watcher->thread.join();
    }
    m_live.reset();
    m_log.reset();
    QDir(QString::fromStdString(m_scratch)).removeRecursively();
}

std::string Workbench::listen()
{
    int port = m_settings.port;
    if (port == 0)
        port = m_server->bind_to_any_port(m_settings.host);
    else if (!m_server->bind_to_port(m_settings.host, port))
        port = -1;
    if (port < 0)
        throw std::runtime_error("cannot listen on " + m_settings.host + ":" +
                                 std::to_string(m_settings.port) +
                                 ": the address is taken or not this machine's");
    m_settings.port = port;
    bool const v6 = m_settings.host.find(':') != std::string::npos;
    std::string const host = v6 ? "[" + m_settings.host + "]" : m_settings.host;
    m_url = "http://" + host + ":" + std::to_string(port) + "/";
    if (!m_loopback)
        m_url += "?token=" + m_settings.token;
    m_live = std::make_unique<LiveFeed>(m_gate, m_events);
    m_log = std::make_unique<LogTail>(orv::Paths::redisCacheSocket(), m_events);
    m_watcher = std::make_unique<Watcher>();
    m_watcher->thread = std::thread([this] { watchStatus(); });
    return m_url;
}

void Workbench::serve()
{
    m_server->listen_after_bind();
}

void Workbench::stop()
{
    m_events.close();
    m_server->stop();
}

void Workbench::watchStatus()
{
    std::unique_lock<std::mutex> lock(m_watcher->mutex);
    while (!m_watcher->stop) {
        lock.unlock();
        std::string why;
        m_gate.use([](Plugin&) {}, why); // loads the plug-in once it can be
        QJsonObject const now = status();
        lock.lock();
        if (now != m_watcher->last) {
            m_watcher->last = now;
            m_events.publish("status", jsonText(now));
        }
        m_watcher->wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_watcher->stop; });
    }
}

QJsonObject Workbench::status() const
{
    QJsonObject status;
    status.insert("redis", redisStatus());
    status.insert("bus", busStatus());
    status.insert("plugin", m_gate.loaded() ? check(true, "loaded from " + m_settings.plugin)
                                            : check(false, m_gate.problem()));
    long long const age = m_live ? m_live->age() : -1;
    bool const recent = age >= 0 && age < 10000;
    status.insert("camera",
                  check(recent, age < 0
                                    ? "no result yet: trigger the camera, or check that it publishes in " +
                                          orv::Paths::frameDir()
                                : recent ? "results are coming"
                                         : "no result for " + std::to_string(age / 1000) + " s"));
    return status;
}

// ---------------------------------------------------------------------------------------------
// Safety

bool Workbench::admitted(httplib::Request const& request, httplib::Response& response) const
{
    std::string const port = ":" + std::to_string(m_settings.port);
    std::string const host = request.get_header_value("Host");
    bool const anyAddress = m_settings.host == "0.0.0.0" || m_settings.host == "::";
    bool const named =
        anyAddress || host == m_settings.host + port || host == "[" + m_settings.host + "]" + port ||
        (m_loopback && (host == "localhost" + port || host == "127.0.0.1" + port || host == "[::1]" + port));
    if (!named) {
        refuse(response, 421, "the Host header \"" + host + "\" does not name this server: open " + m_url);
        return false;
    }
    bool const api = request.path.rfind("/api/", 0) == 0;
    std::string const token = request.has_header(TokenHeader) ? request.get_header_value(TokenHeader)
                                                              : request.get_param_value("token");
    if (api && !m_loopback && token != m_settings.token) {
        refuse(response, 401, "this server needs its token: open the URL it printed when it started");
        return false;
    }
    if (request.method != "GET" && request.method != "HEAD") {
        // Validating, formatting and making a decoder read only: a read-only page still shapes output.
        static std::set<std::string> const changes = {"/api/trigger", "/api/apps", "/api/io",
                                                      "/api/log/mask"};
        if (m_settings.readOnly && changes.count(request.path) > 0) {
            refuse(response, 403, "the workbench is read-only: it was started with --read-only");
            return false;
        }
        if (request.get_header_value(TokenHeader) != m_settings.token) {
            refuse(response, 403,
                   std::string("a change needs the ") + TokenHeader + " header from /api/session");
            return false;
        }
    }
    return true;
}

void Workbench::logChange(httplib::Request const& request, std::string const& what) const
{
    std::string const line =
        "change from " + request.remote_addr + ": " + request.method + " " + request.path + " " + what;
    fprintf(stderr, "vorn-host serve: %s\n", line.c_str());
    try {
        orv::Logger::RedisLogger logger("WORKBENCH", orv::Paths::redisCacheSocket().c_str(), "LOG:ENTRIES",
                                        false);
        // WARN: the loggers' default mask keeps it, so a change made from a page is never unrecorded.
        logger.log(orv::Logger::RedisLogger::WARN, "%s", line.c_str());
    } catch (std::exception const&) {
        // Redis is away: standard error has it.
    }
}

// ---------------------------------------------------------------------------------------------
// Routes

void Workbench::routes()
{
    m_server->set_pre_routing_handler([this](httplib::Request const& request, httplib::Response& response) {
        return admitted(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                           : httplib::Server::HandlerResponse::Handled;
    });
    m_server->set_error_handler([](httplib::Request const& request, httplib::Response& response) {
        if (!response.body.empty())
            return;
        if (response.status == 413)
            refuse(response, 413, "the body is larger than 1 MiB");
        else if (response.status == 404)
            refuse(response, 404, "no such page or route: " + request.path);
        else
            refuse(response, response.status, "the request could not be served");
    });
    m_server->set_exception_handler(
        [](httplib::Request const&, httplib::Response& response, std::exception_ptr error) {
            std::string why = "unknown";
            try {
                std::rethrow_exception(error);
            } catch (std::exception const& e) {
                why = e.what();
            } catch (...) {
            }
            refuse(response, 500, "the request failed: " + why);
        });
    if (!m_settings.webDir.empty())
        m_server->set_mount_point("/", m_settings.webDir);
    m_server->Get("/api/session", [this](httplib::Request const&, httplib::Response& response) {
        answer(response, {{"token", QString::fromStdString(m_settings.token)},
                          {"readOnly", m_settings.readOnly},
                          {"version", KV_VERSION},
                          {"url", QString::fromStdString(m_url)}});
    });
    m_server->Get("/api/status", [this](httplib::Request const&, httplib::Response& response) {
        QJsonObject object = status();
        object.insert("live", m_live->counts());
        answer(response, object);
    });
    deviceRoutes();
    liveRoutes();
    formatRoutes();
    logRoutes();
}

void Workbench::deviceRoutes()
{
    m_server->Get("/api/device", [this](httplib::Request const&, httplib::Response& response) {
        QJsonObject items, errors;
        for (char const* key :
             {"vendor", "article_number", "name", "location", "device_info", "ipv4_address",
              "ipv4_subnetmask", "ipv4_gateway", "mac_address", "ipv4_dhcp", "port_number"}) {
            PluginGate::Answer const item = m_gate.run("device-info", {key});
            if (item.status == 503)
                return answer(response, item);
            items.insert(key, item.exitCode == 0 ? item.body.value("value") : QJsonValue());
            if (item.exitCode != 0)
                errors.insert(key, item.body.value("status").toString(item.body.value("error").toString()));
        }
        answer(response, {{"items", items}, {"errors", errors}});
    });
    m_server->Get("/api/apps", [this](httplib::Request const&, httplib::Response& response) {
        answer(response, m_gate.run("apps", {}));
    });
    m_server->Post("/api/apps", [this](httplib::Request const& request, httplib::Response& response) {
        QJsonObject body;
        int index = 0;
        if (!bodyOf(request, response, body) || !integerOf(body, "index", 0, 255, response, index))
            return;
        logChange(request, "set-app " + std::to_string(index));
        answerChange(response, m_gate.run("set-app", {std::to_string(index)}));
    });
    m_server->Get("/api/io", [this](httplib::Request const&, httplib::Response& response) {
        QJsonArray ios;
        for (int io = 1; io <= 3; ++io) {
            PluginGate::Answer const state = m_gate.run("get-io", {std::to_string(io)});
            if (state.status == 503)
                return answer(response, state);
            QJsonObject entry{{"io", io}};
            if (state.exitCode == 0)
                entry.insert("state", state.body.value("state"));
            else
                entry.insert("error",
                             state.body.value("status").toString(state.body.value("error").toString()));
            ios.append(entry);
        }
        answer(response, {{"ios", ios}});
    });
    m_server->Post("/api/io", [this](httplib::Request const& request, httplib::Response& response) {
        QJsonObject body;
        int io = 0, state = 0;
        if (!bodyOf(request, response, body) || !integerOf(body, "io", 1, 3, response, io) ||
            !integerOf(body, "state", 0, 1, response, state))
            return;
        logChange(request, "set-io " + std::to_string(io) + " " + std::to_string(state));
        answerChange(response, m_gate.run("set-io", {std::to_string(io), std::to_string(state)}));
    });
    m_server->Get("/api/stats", [this](httplib::Request const&, httplib::Response& response) {
        QJsonObject counters;
        for (char const* key :
             {"number_of_results", "number_of_positive_decodings", "number_of_false_decodings"}) {
            PluginGate::Answer const counter = m_gate.run("stats", {key, "1"});
            if (counter.status == 503)
                return answer(response, counter);
            counters.insert(key, counter.exitCode == 0 ? counter.body.value("value") : QJsonValue());
        }
        answer(response, counters);
    });
    m_server->Post("/api/trigger", [this](httplib::Request const& request, httplib::Response& response) {
        logChange(request, "trigger");
        answerChange(response, m_gate.run("trigger", {}));
    });
}

void Workbench::liveRoutes()
{
    m_server->Get("/api/live", [this](httplib::Request const&, httplib::Response& response) {
        QJsonObject const summary = m_live->summary();
        if (summary.value("sequence").toInt() == 0)
            return refuse(response, 404, "no result yet: trigger the camera");
        answer(response, summary);
    });
    auto part = [this](QByteArray LiveFeed::Latest::*member, char const* type) {
        return [this, member, type](httplib::Request const&, httplib::Response& response) {
            QByteArray const bytes = m_live->latest().*member;
            if (bytes.isEmpty())
                return refuse(response, 404, "the newest result has none: trigger the camera");
            response.set_header("Cache-Control", "no-store");
            response.set_content(bytes.constData(), size_t(bytes.size()), type);
        };
    };
    m_server->Get("/api/live/amplitude.png", part(&LiveFeed::Latest::picture, "image/png"));
    m_server->Get("/api/live/distance", part(&LiveFeed::Latest::distance, "application/octet-stream"));
    m_server->Get("/api/events", [this](httplib::Request const&, httplib::Response& response) {
        // What a page needs at once, then every event as it comes; a comment now and then keeps
        // proxies from closing a quiet stream and tells a gone page apart.
        std::string first = "retry: 1000\n\nevent: status\ndata: " + jsonText(status()) + "\n\n";
        if (m_live->latest().sequence != 0)
            first += "event: result\ndata: " + jsonText(m_live->summary()) + "\n\n";
        uint64_t const from = m_events.newest();
        response.set_header("Cache-Control", "no-store");
        response.set_chunked_content_provider(
            "text/event-stream", [this, first, last = from](size_t, httplib::DataSink& sink) mutable {
                std::string text = std::move(first);
                first.clear();
                if (text.empty()) {
                    std::vector<EventHub::Event> const events = m_events.after(last, 15000);
                    if (m_events.closed()) {
                        sink.done();
                        return true;
                    }
                    for (EventHub::Event const& event : events) {
                        text += "event: " + event.name + "\ndata: " + event.data + "\n\n";
                        last = event.number;
                    }
                    if (events.empty())
                        text = ": waiting\n\n";
                }
                return sink.write(text.data(), text.size());
            });
    });
}

std::string Workbench::descriptionFile(QJsonObject const& body) const
{
    static std::atomic<unsigned> counter{0};
    std::string const path = m_scratch + "/description-" + std::to_string(++counter) + ".json";
    std::ofstream file(path, std::ios::binary);
    file << body.value("description").toString().toStdString();
    if (!file)
        throw std::runtime_error("cannot write " + path);
    return path;
}

void Workbench::formatRoutes()
{
    m_server->Get("/api/examples", [this](httplib::Request const&, httplib::Response& response) {
        QJsonArray examples;
        QDir const dir(QString::fromStdString(m_settings.examples));
        for (QString const& name : dir.entryList({"*.json"}, QDir::Files, QDir::Name)) {
            QFile file(dir.filePath(name));
            if (file.open(QIODevice::ReadOnly))
                examples.append(QJsonObject{{"name", name}, {"text", QString::fromUtf8(file.readAll())}});
        }
        response.set_content(QJsonDocument(examples).toJson(QJsonDocument::Compact).toStdString(),
                             "application/json");
    });
    // Each route takes the description as text and hands it to the subcommand as a file.
    auto withDescription = [this](auto&& handle) {
        return [this, handle](httplib::Request const& request, httplib::Response& response) {
            QJsonObject body;
            if (!bodyOf(request, response, body))
                return;
            if (!body.value("description").isString())
                return refuse(response, 400, "\"description\" is the description's text, a string");
            std::string const order = body.value("order").toString("little").toStdString();
            if (order != "little" && order != "big")
                return refuse(response, 400, "\"order\" is \"little\" or \"big\"");
            std::string const path = descriptionFile(body);
            handle(body, path, order == "big", response);
            unlink(path.c_str());
        };
    };
    m_server->Post(
        "/api/validate", withDescription([this](QJsonObject const&, std::string const& path, bool,
                                                httplib::Response& response) {
            PluginGate::Answer const result = m_gate.run("validate", {path});
            if (result.status != 200)
                return answer(response, result);
            QJsonArray problems;
            for (QJsonValue const& line : result.body.value("problems").toArray()) {
                QString const text = line.toString();
                int const colon = text.indexOf(": ");
                problems.append(QJsonObject{{"path", text.left(colon)}, {"message", text.mid(colon + 2)}});
            }
            answer(response, {{"valid", result.body.value("valid").toBool()}, {"problems", problems}});
        }));
    m_server->Post("/api/format", withDescription([this](QJsonObject const&, std::string const& path,
                                                         bool big, httplib::Response& response) {
                       // The newest published, not the newest shown: with a second client taking
                       // frames, the one shown may already be gone from Redis.
                       std::string const id = m_live->newest();
                       if (id.empty())
                           return refuse(response, 409, "no result yet: trigger the camera");
                       std::vector<std::string> words{id, path};
                       if (big)
                           words.push_back("--big-endian");
                       PluginGate::Answer formatted = m_gate.run("format", words);
                       if (formatted.status != 200)
                           return answer(response, formatted);
                       words.push_back("--explain");
                       PluginGate::Answer const explained = m_gate.run("format", words);
                       QJsonArray const map = explained.body.value("map").toArray();
                       QJsonArray lists;
                       for (QJsonValue const& entry : map)
                           if (entry.toObject().value("kind") == "list" &&
                               !lists.contains(entry.toObject().value("id")))
                               lists.append(entry.toObject().value("id"));
                       QJsonObject body = formatted.body;
                       body.insert("id", QString::fromStdString(id));
                       body.insert("map", map);
                       body.insert("lists", lists);
                       // The map is made by the plug-in's code here; it belongs to these bytes only if it
                       // made the same.
                       body.insert("agrees", explained.body.value("hex") == formatted.body.value("hex"));
                       answer(response, body);
                   }));
    m_server->Post("/api/decoder", withDescription([this](QJsonObject const& body, std::string const& path,
                                                          bool big, httplib::Response& response) {
                       std::string const lang = body.value("lang").toString("st").toStdString();
                       if (lang != "st" && lang != "c")
                           return refuse(response, 400, "\"lang\" is \"st\" or \"c\"");
                       QString const name = body.value("name").toString("answer");
                       std::vector<std::string> words{path, "--lang", lang, "--name", name.toStdString()};
                       QStringList records;
                       QJsonObject const capacities = body.value("records").toObject();
                       for (auto it = capacities.begin(); it != capacities.end(); ++it)
                           records.append(it.key() + "=" + QString::number(it.value().toInt()));
                       if (!records.isEmpty())
                           words.insert(words.end(), {"--records", records.join(',').toStdString()});
                       if (big)
                           words.push_back("--big-endian");
                       PluginGate::Answer result = m_gate.run("plc-types", words);
                       if (result.status == 200)
                           result.body.insert("file", name + (lang == "c" ? ".h" : ".st"));
                       answer(response, result);
                   }));
}

void Workbench::logRoutes()
{
    m_server->Get("/api/log", [this](httplib::Request const& request, httplib::Response& response) {
        int count = 200;
        if (request.has_param("n")) {
            bool ok = false;
            count = QString::fromStdString(request.get_param_value("n")).toInt(&ok);
            if (!ok || count < 1 || count > 5000)
                return refuse(response, 400, "n is a whole number from 1 to 5000");
        }
        try {
            answer(response, {{"entries", m_log->newest(count)}});
        } catch (std::exception const& e) {
            refuse(response, 503, e.what());
        }
    });
    m_server->Post("/api/log/mask", [this](httplib::Request const& request, httplib::Response& response) {
        QJsonObject body;
        int mask = 0;
        if (!bodyOf(request, response, body) || !integerOf(body, "mask", 0, 255, response, mask))
            return;
        QString const source = body.value("source").toString("all");
        if (source.isEmpty())
            return refuse(response, 400, "\"source\" is a logger's name, or \"all\"");
        QJsonObject const change{{"source", source}, {"mask", mask}};
        logChange(request, "log mask " + jsonText(change));
        try {
            long long const receivers = m_log->configure(change);
            answer(response,
                   {{"published", QString::fromStdString(jsonText(change))}, {"receivers", receivers}});
        } catch (std::exception const& e) {
            refuse(response, 503, e.what());
        }
    });
}

} // namespace vornhost
