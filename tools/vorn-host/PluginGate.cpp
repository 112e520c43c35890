#include "PluginGate.h"

#include <QJsonArray>

namespace vornhost {

namespace {

// A plug-in that could not be loaded is tried again at most this often: each try probes Redis.
constexpr std::chrono::seconds RetryEvery{2};

PluginGate::Answer failure(int status, std::string const& why)
{
    PluginGate::Answer answer;
    answer.status = status;
    answer.exitCode = 1;
    answer.body.insert("error", QString::fromStdString(why));
    return answer;
}

} // namespace

PluginGate::PluginGate(std::string path, std::chrono::milliseconds patience)
    : m_path(std::move(path)), m_patience(patience)
{}

PluginGate::~PluginGate() = default;

bool PluginGate::loaded() const
{
    std::lock_guard<std::mutex> lock(m_state);
    return m_plugin != nullptr;
}

std::string PluginGate::problem() const
{
    std::lock_guard<std::mutex> lock(m_state);
    return m_problem;
}

Plugin* PluginGate::plugin(std::string& why)
{
    std::lock_guard<std::mutex> lock(m_state);
    if (!m_plugin && std::chrono::steady_clock::now() >= m_nextTry) {
        try {
            m_plugin = std::make_unique<Plugin>(m_path);
            m_problem.clear();
        } catch (std::exception const& e) {
            m_problem = e.what();
            m_nextTry = std::chrono::steady_clock::now() + RetryEvery;
        }
    }
    why = "the plug-in is not loaded: " + m_problem;
    return m_plugin.get();
}

bool PluginGate::use(std::function<void(Plugin&)> const& work, std::string& why)
{
    {
        std::unique_lock<std::mutex> lock(m_turnMutex);
        if (!m_turnFree.wait_for(lock, m_patience, [this] { return !m_busy; })) {
            why = "the plug-in is busy with another request: try again";
            return false;
        }
        m_busy = true;
    }
    struct Release
    {
        PluginGate& gate;
        ~Release()
        {
            {
                std::lock_guard<std::mutex> lock(gate.m_turnMutex);
                gate.m_busy = false;
            }
            gate.m_turnFree.notify_one();
        }
    } const release{*this};
    Plugin* loadedPlugin = plugin(why);
    if (loadedPlugin == nullptr)
        return false;
    work(*loadedPlugin);
    return true;
}

PluginGate::Answer PluginGate::run(std::string const& name, std::vector<std::string> const& words)
{
    Command const* command = findCommand(name);
    if (command == nullptr)
        return failure(500, "no command " + name);
    Answer answer;
    Output out(true);
    Args args(words);
    try {
        if (command->offline != nullptr) {
            answer.exitCode = command->offline(out, args);
        } else {
            std::string why;
            if (!use([&](Plugin& p) { answer.exitCode = command->run(p, out, args); }, why))
                return failure(503, why);
        }
    } catch (cli::UsageError const& e) {
        return failure(400, e.what());
    } catch (cli::Failure const& e) {
        return failure(422, e.what());
    } catch (std::exception const& e) {
        return failure(500, e.what());
    }
    answer.body = out.object();
    return answer;
}

} // namespace vornhost
