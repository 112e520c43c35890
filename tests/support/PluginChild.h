// Loads the built plug-in with dlopen in a forked child, exactly as the host daemon loads it, and
// runs a test body there. The plug-in connects to Redis and the bus at load time, so every load
// gets a fresh process with the environment the parent prepared.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

#include "TempDir.h"
#include "core/DataBlock.h"

namespace orv::test {

class LoadedPlugin
{
public:
    using InitFn = void* (*)();
    using HandleCallFn = DataBlock* (*)(void*, DataBlock*);

    InitFn init = nullptr;
    HandleCallFn handleCall = nullptr;

    // Sends a request the way a host does: a zeroed block of its own with the id and the payload.
    // The reply (or null) is the caller's to free with freeReply.
    DataBlock* request(void* handle, int id, void const* payload);
    // Frees a reply as the host does: with the command's id, also the buffer a statistics or
    // format-results record points to; then the payload and the block.
    static void freeReply(DataBlock* reply, int command = 0);

    // Bytes for the parent, read back as ChildResult::output.
    void send(void const* data, size_t size);
    void send(std::string const& text) { send(text.data(), text.size()); }

    int outFd = -1;
};

struct ChildResult
{
    bool exited = false; // ended through exit, with exitCode
    int exitCode = -1;
    int signal = 0;        // the signal that ended it, or 0
    bool timedOut = false; // ended by its alarm after the time limit
    std::string output;    // what the body sent
    std::string errors;    // what the child wrote to standard error
};

std::string pluginPath(); // KV_PLUGIN, or the library this build made

// Runs body in a child that has loaded the plug-in; body's result is the child's exit code. A
// child still running after timeoutMs ends by its alarm. The parent goes on at once, so that its
// main thread can play the other side (stop a server, kill a service) while the child asks:
// forking with a second thread of the test running could copy a lock that thread holds.
class PluginChild
{
public:
    explicit PluginChild(std::function<int(LoadedPlugin&)> const& body, int timeoutMs = 60000,
                         std::string const& path = pluginPath());
    ~PluginChild(); // a child not waited for is killed
    PluginChild(PluginChild const&) = delete;
    PluginChild& operator=(PluginChild const&) = delete;

    ChildResult wait();

private:
    TempDir m_dir{"kv-child"};
    pid_t m_pid = -1;
};

inline ChildResult runWithPlugin(std::function<int(LoadedPlugin&)> const& body, int timeoutMs = 60000,
                                 std::string const& path = pluginPath())
{
    return PluginChild(body, timeoutMs, path).wait();
}

// The same child without the plug-in (its entry points stay null), for a test that changes the
// process itself: closes standard input, lowers a limit.
inline ChildResult runInChild(std::function<int(LoadedPlugin&)> const& body, int timeoutMs = 60000)
{
    return PluginChild(body, timeoutMs, "").wait();
}

} // namespace orv::test
