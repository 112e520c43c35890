// The workbench's API over the simulated camera: every route with its mistakes, the safety checks,
// the live result, and what the server does while Redis is away.
#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "RedisServer.h"
#include "WorkbenchServer.h"

using namespace orv::test;
using ::testing::HasSubstr;

namespace {

QJsonObject objectOf(std::string const& text)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
}

std::string example(std::string const& name)
{
    std::ifstream file(KV_SOURCE_DIR "/docs/examples/" + name);
    std::stringstream text;
    text << file.rdbuf();
    return QJsonDocument(QJsonObject{{"description", QString::fromStdString(text.str())}})
        .toJson(QJsonDocument::Compact)
        .toStdString();
}

// Polls `done` for up to `seconds`.
bool eventually(std::function<bool()> const& done, int seconds = 10)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (done())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

class Workbench : public ::testing::Test
{
protected:
    // A client of `server`; a change carries the server's token unless `token` says otherwise.
    struct Call
    {
        Call(WorkbenchServer const& s, std::string t = "", std::string h = "")
            : server(s), token(std::move(t)), host(std::move(h))
        {}
        WorkbenchServer const& server;
        std::string token;
        std::string host; // the Host header, when not the listener's

        httplib::Result send(std::string const& method, std::string const& path,
                             std::string const& body = "") const
        {
            httplib::Client client("http://" + server.address());
            client.set_read_timeout(30, 0);
            httplib::Headers headers;
            if (!token.empty())
                headers.emplace("X-Workbench-Token", token);
            if (!host.empty())
                headers.emplace("Host", host);
            // A connection the emulator of the camera build now and then drops unanswered is asked
            // again once; what the server answers is what the tests check.
            for (int attempt = 0;; ++attempt) {
                httplib::Result result = method == "GET"
                                             ? client.Get(path.c_str(), headers)
                                             : client.Post(path.c_str(), headers, body, "application/json");
                if (result || attempt == 1)
                    return result;
            }
        }
    };

    std::string tokenOf(WorkbenchServer const& server)
    {
        httplib::Result const session = Call{server, ""}.send("GET", "/api/session");
        if (!session)
            ADD_FAILURE() << "no session: " << httplib::to_string(session.error()) << "\n" << server.errors();
        return session ? objectOf(session->body).value("token").toString().toStdString() : "";
    }

    RedisEnvironment m_redis;
    DBusDaemon m_bus;
    CameraSim m_camera;
};

TEST_F(Workbench, EveryRouteAnswersAndRefusesWhatItMustWithAMessage)
{
    WorkbenchServer const server, readOnly({"--read-only"}),
        open({"--listen", "0.0.0.0:0", "--token", "s3cret"});
    std::string const token = tokenOf(server), port = server.address().substr(server.address().find(':'));
    std::string const readOnlyToken = tokenOf(readOnly);
    Call const plain{server, token}, anonymous{server, ""}, wrong{server, "guess"};
    Call const elsewhere{server, "", "camera.example" + port}, named{server, "", "localhost" + port};
    Call const locked{readOnly, readOnlyToken};
    Call const openWithout{open, ""}, openWith{open, "s3cret"};
    std::string const big((1 << 20) + 1, ' ');
    struct Row
    {
        Call const& call;
        std::string method, path, body;
        int status;
        std::string says;
    } const rows[] = {
        {anonymous, "GET", "/api/session", "", 200, "\"readOnly\":false"},
        {locked, "GET", "/api/session", "", 200, "\"readOnly\":true"},
        {anonymous, "GET", "/api/status", "", 200, "\"plugin\":{\"detail\":\"loaded from"},
        {anonymous, "GET", "/api/apps", "", 200, "\"applications\":[1,2,3]"},
        {anonymous, "GET", "/api/device", "", 200, "\"vendor\":"},
        {anonymous, "GET", "/api/stats", "", 200, "\"number_of_results\":"},
        {anonymous, "GET", "/api/io", "", 200, "\"io\":3"},
        {anonymous, "GET", "/api/examples", "", 200, "format-demo.json"},
        {anonymous, "GET", "/api/log?n=5", "", 200, "\"entries\":["},
        {anonymous, "GET", "/api/log?n=0", "", 400, "n is a whole number from 1 to 5000"},
        {anonymous, "GET", "/api/live", "", 404, "no result yet"},
        {anonymous, "GET", "/api/live/amplitude.png", "", 404, "trigger the camera"},
        {anonymous, "GET", "/no/such/page", "", 404, "no such page or route: /no/such/page"},
        {plain, "POST", "/api/format", example("format-demo.json"), 409, "no result yet"},
        // Safety: the Host header, the token, read-only, the listener off the loopback.
        {elsewhere, "GET", "/api/status", "", 421, "does not name this server"},
        {named, "GET", "/api/status", "", 200, "\"redis\""},
        {anonymous, "POST", "/api/trigger", "{}", 403, "needs the X-Workbench-Token header"},
        {wrong, "POST", "/api/trigger", "{}", 403, "needs the X-Workbench-Token header"},
        {locked, "POST", "/api/trigger", "{}", 403, "read-only"},
        {locked, "POST", "/api/log/mask", R"({"mask":255})", 403, "read-only"},
        {openWithout, "GET", "/api/status", "", 401, "needs its token"},
        {openWith, "GET", "/api/status", "", 200, "\"bus\""},
        // Bodies and fields.
        {plain, "POST", "/api/apps", "{\"index\":", 400, "the body is no JSON"},
        {plain, "POST", "/api/apps", "[2]", 400, "a JSON object"},
        {plain, "POST", "/api/apps", R"({"index":"2"})", 400, "\"index\" is a whole number from 0 to 255"},
        {plain, "POST", "/api/io", R"({"io":4,"state":1})", 400, "\"io\" is a whole number from 1 to 3"},
        {plain, "POST", "/api/io", R"({"io":1,"state":0.5})", 400, "\"state\" is a whole number from 0 to 1"},
        {plain, "POST", "/api/log/mask", R"({"mask":256})", 400, "\"mask\" is a whole number from 0 to 255"},
        {plain, "POST", "/api/validate", "{}", 400, "\"description\" is the description's text"},
        {plain, "POST", "/api/format", R"({"description":"{}","order":"middle"})", 400, "\"order\" is"},
        {plain, "POST", "/api/decoder", R"({"description":"{}","lang":"java"})", 400, "\"lang\" is"},
        {plain, "POST", "/api/apps", big, 413, "larger than 1 MiB"},
        // What the plug-in and the commands say.
        {plain, "POST", "/api/validate", R"({"description":"{\"elements\":[{\"type\":\"uint17\"}]}"})", 200,
         "\"path\":\"/elements/0/type\""},
        {plain, "POST", "/api/decoder", example("format-plc-rois.json"), 400, "give the capacity of"},
        {plain, "POST", "/api/apps", R"({"index":3})", 200, "\"status\":\"success\""},
        {plain, "POST", "/api/apps", R"({"index":9})", 502, "\"status\":"},
        {plain, "POST", "/api/log/mask", R"({"mask":255,"source":"all"})", 200, "\"receivers\":"},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.method + " " + row.path + " " + row.body.substr(0, 80));
        httplib::Result const result = row.call.send(row.method, row.path, row.body);
        ASSERT_TRUE(result) << httplib::to_string(result.error());
        EXPECT_EQ(result->status, row.status);
        // An error's text as the page shows it; any other answer as it came.
        QJsonValue const error = objectOf(result->body).value("error");
        EXPECT_THAT(error.isString() ? error.toString().toStdString() : result->body, HasSubstr(row.says));
        EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
    }
    EXPECT_EQ(objectOf(plain.send("GET", "/api/apps")->body).value("active").toInt(), 3);
    // Each change is in the camera's log, with who made it.
    EXPECT_TRUE(eventually([&] {
        for (std::string const& message : m_redis.cache().logMessages("WARN"))
            if (message.find("change from 127.0.0.1: POST /api/apps set-app 3") != std::string::npos)
                return true;
        return false;
    }));
}

TEST_F(Workbench, ShowsOnlyTheNewestResultLiveAndFormatsItAsThePlugInDoes)
{
    WorkbenchServer const server;
    Call const call{server, tokenOf(server)};
    // A page's event stream, read on a thread of its own until the third result has come.
    std::string events;
    std::thread reader([&] {
        httplib::Client client("http://" + server.address());
        client.set_read_timeout(20, 0);
        client.Get("/api/events", [&](char const* data, size_t length) {
            events.append(data, length);
            return events.find("\"results\":3") == std::string::npos;
        });
    });
    // Three results at once: the feed is busy with the first when the others come, and takes only the
    // newest of those waiting.
    std::string last;
    for (int i = 0; i < 3; ++i)
        last = m_camera.trigger();
    ASSERT_TRUE(eventually(
        [&] { return objectOf(call.send("GET", "/api/live")->body).value("id") == last.c_str(); }));
    QJsonObject const live = objectOf(call.send("GET", "/api/live")->body);
    EXPECT_EQ(live.value("results").toInt() + live.value("skipped").toInt(), 3)
        << live.value("results").toInt();
    EXPECT_TRUE(live.value("model").toObject().contains("model_001"));

    httplib::Result const picture = call.send("GET", live.value("picture").toString().toStdString());
    EXPECT_EQ(picture->get_header_value("Content-Type"), "image/png");
    EXPECT_EQ(picture->body.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
    httplib::Result const distance = call.send("GET", "/api/live/distance");
    ASSERT_GE(distance->body.size(), 48u);
    uint32_t size[2];
    memcpy(size, distance->body.data() + 16, sizeof size);
    EXPECT_EQ(distance->body.size(), 48u + 2u * size[0] * size[1])
        << "unsigned 16-bit pixels after the header";

    for (std::string const order : {"little", "big"}) {
        std::string body = example("format-demo-binary.json");
        body.insert(body.size() - 1, ",\"order\":\"" + order + "\"");
        QJsonObject const formatted = objectOf(call.send("POST", "/api/format", body)->body);
        EXPECT_EQ(formatted.value("id").toString().toStdString(), last);
        EXPECT_TRUE(formatted.value("agrees").toBool())
            << "the byte map is of other bytes than the plug-in's";
        EXPECT_EQ(formatted.value("lists").toArray(), QJsonArray{"models"});
        EXPECT_EQ(formatted.value("map").toArray().at(1).toObject().value("order").toString().toStdString(),
                  order);
    }
    std::string decoder = example("format-plc-rois.json");
    decoder.insert(decoder.size() - 1, R"(,"lang":"c","name":"cell7","records":{"models":4,"rois":8})");
    QJsonObject const code = objectOf(call.send("POST", "/api/decoder", decoder)->body);
    EXPECT_EQ(code.value("file").toString(), "cell7.h");
    EXPECT_THAT(code.value("text").toString().toStdString(), HasSubstr("#define CELL7_MODELS_CAPACITY 4"));

    reader.join();
    EXPECT_THAT(events, HasSubstr("event: status\ndata: {"));
    EXPECT_THAT(events, HasSubstr("event: result\ndata: {"));
}

TEST_F(Workbench, SaysWhatIsMissingAndComesBackByItselfWhenRedisDoes)
{
    m_redis.cache().stop();
    WorkbenchServer const server;
    Call const call{server, tokenOf(server)};
    auto status = [&](char const* part) {
        httplib::Result const result = call.send("GET", "/api/status");
        return result ? objectOf(result->body).value(part).toObject().value("ok").toBool() : false;
    };
    EXPECT_FALSE(status("redis"));
    EXPECT_FALSE(status("plugin"));
    httplib::Result const refused = call.send("GET", "/api/apps");
    EXPECT_EQ(refused->status, 503);
    EXPECT_THAT(refused->body, HasSubstr("needs its Redis cache"));
    EXPECT_EQ(call.send("GET", "/api/log")->status, 503);

    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round == 0 ? "Redis there after the server started" : "Redis gone and back");
        m_redis.cache().start();
        ASSERT_TRUE(eventually([&] { return status("redis") && status("plugin"); }));
        std::string const id = m_camera.trigger();
        EXPECT_TRUE(eventually(
            [&] { return objectOf(call.send("GET", "/api/live")->body).value("id") == id.c_str(); }));
        EXPECT_EQ(call.send("GET", "/api/log?n=1")->status, 200);
        m_redis.cache().stop();
        EXPECT_TRUE(eventually([&] { return !status("redis"); }));
    }
}

} // namespace
