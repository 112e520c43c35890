// The workbench's one way into the plug-in: loaded when first needed and, while it cannot be, tried
// again on later requests; one call at a time, as the host daemon makes them. A request that waits
// too long for its turn is told so rather than queued without end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <QJsonObject>

#include "HostCommand.h"

namespace vornhost {

class PluginGate
{
public:
    // What a request gets: an HTTP status and the JSON to send; `exitCode` is the subcommand's
    // (0 when the plug-in reported success).
    struct Answer
    {
        int status = 200;
        QJsonObject body;
        int exitCode = 0;
    };

    explicit PluginGate(std::string path, std::chrono::milliseconds patience = std::chrono::seconds(10));
    ~PluginGate();

    // One vorn-host subcommand with its words, as from the command line: its fields, or its error
    // under "error" with the status that fits it (400 a wrong request, 422 a refusal, 500 a failure
    // here, 503 no plug-in or no turn in time).
    Answer run(std::string const& command, std::vector<std::string> const& words);
    // Any use of the loaded plug-in in its turn; false (and `why` says it) when there is none.
    bool use(std::function<void(Plugin&)> const& work, std::string& why);

    bool loaded() const;
    std::string problem() const; // why the last load failed; empty once loaded

private:
    Plugin* plugin(std::string& why); // only in one's turn

    std::string m_path;
    std::chrono::milliseconds m_patience;
    // The turn: a flag under a plain mutex rather than a timed mutex, whose timed wait the thread
    // sanitizer cannot follow.
    std::mutex m_turnMutex;
    std::condition_variable m_turnFree;
    bool m_busy = false;
    mutable std::mutex m_state;
    std::unique_ptr<Plugin> m_plugin;
    std::string m_problem = "not loaded yet";
    std::chrono::steady_clock::time_point m_nextTry{};
};

} // namespace vornhost
