// The workbench server: the page's files and its JSON API over HTTP, on top of the plug-in (one call
// at a time through the gate), the live feed and the log. Every request is checked before it is
// routed: the Host header must name the listener, an API request off the loopback needs the token,
// and a change needs the token header and a server that is not read-only.
#pragma once

#include <memory>
#include <string>

#include <QJsonObject>

#include "EventHub.h"
#include "LiveFeed.h"
#include "LogTail.h"
#include "PluginGate.h"

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace vornhost {

class Workbench
{
public:
    struct Settings
    {
        std::string plugin; // the plug-in's path
        std::string host = "127.0.0.1";
        int port = 8080; // 0: a free one
        bool readOnly = false;
        std::string token;    // empty: a random one
        std::string webDir;   // the page's files
        std::string examples; // descriptions offered as examples
    };

    explicit Workbench(Settings settings);
    ~Workbench();

    // Binds the listener; throws std::runtime_error when it cannot. Returns the page's URL (with the
    // token off the loopback).
    std::string listen();
    // Serves until stop() is called (from another thread or a signal).
    void serve();
    void stop();

    bool loopback() const { return m_loopback; }

private:
    struct Gate;
    void routes();
    void deviceRoutes();
    void liveRoutes();
    void formatRoutes();
    void logRoutes();
    bool admitted(httplib::Request const& request, httplib::Response& response) const;
    void watchStatus();
    QJsonObject status() const;
    void logChange(httplib::Request const& request, std::string const& what) const;
    std::string descriptionFile(QJsonObject const& body) const;

    Settings m_settings;
    bool m_loopback;
    std::string m_url;
    EventHub m_events;
    PluginGate m_gate;
    std::unique_ptr<httplib::Server> m_server;
    std::string m_scratch; // a private folder for the descriptions the commands read
    std::unique_ptr<LiveFeed> m_live;
    std::unique_ptr<LogTail> m_log;
    struct Watcher;
    std::unique_ptr<Watcher> m_watcher;
};

} // namespace vornhost
