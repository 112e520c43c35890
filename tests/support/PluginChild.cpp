#include "PluginChild.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "TempDir.h"

namespace orv {
namespace test {

DataBlock* LoadedPlugin::request(void* handle, int id, void const* payload)
{
    DataBlock block;
    memset(&block, 0, sizeof block);
    block.command = id;
    block.data = static_cast<unsigned char*>(const_cast<void*>(payload));
    return handleCall(handle, &block);
}

void LoadedPlugin::freeReply(DataBlock* reply)
{
    if (reply == nullptr)
        return;
    free(reply->data);
    free(reply);
}

void LoadedPlugin::send(void const* data, size_t size)
{
    auto const* p = static_cast<char const*>(data);
    while (size > 0) {
        ssize_t n = write(outFd, p, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            _exit(120);
        p += n;
        size -= static_cast<size_t>(n);
    }
}

std::string pluginPath()
{
    if (char const* path = getenv("KV_PLUGIN"))
        return path;
    return KV_PLUGIN_PATH;
}

namespace {

// noexcept: an exception out of the plug-in's static initialisation (or the body) must end the child
// the way it ends a host, not unwind into the forked copy of the test program.
int runChild(std::function<int(LoadedPlugin&)> const& body, std::string const& path, int outFd) noexcept
{
    LoadedPlugin plugin;
    plugin.outFd = outFd;
    void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) {
        fprintf(stderr, "dlopen: %s\n", dlerror());
        return 125;
    }
    plugin.init = reinterpret_cast<LoadedPlugin::InitFn>(dlsym(lib, "VORN_init"));
    plugin.handleCall = reinterpret_cast<LoadedPlugin::HandleCallFn>(dlsym(lib, "VORN_handle_call"));
    if (plugin.init == nullptr || plugin.handleCall == nullptr) {
        fprintf(stderr, "dlsym: entry points missing\n");
        return 124;
    }
    int code = body(plugin);
    dlclose(lib);
    return code;
}

std::string readFile(std::string const& path)
{
    std::string text;
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr)
        return text;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, f)) > 0)
        text.append(buffer, n);
    fclose(f);
    return text;
}

} // namespace

ChildResult runWithPlugin(std::function<int(LoadedPlugin&)> const& body, int timeoutMs,
                          std::string const& path)
{
    TempDir dir("kv-child");
    std::string const errorsPath = dir.file("stderr");
    int fds[2];
    if (pipe(fds) != 0)
        throw std::runtime_error("pipe failed");
    fflush(nullptr);

    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        int err = open(errorsPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(err, STDERR_FILENO);
        close(err);
        int code = runChild(body, path, fds[1]);
        fflush(nullptr);
        _exit(code);
    }
    close(fds[1]);

    ChildResult result;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    char buffer[65536];
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                          std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        pollfd p{fds[0], POLLIN, 0};
        int ready = poll(&p, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            continue;
        ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        result.output.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);

    int status = 0;
    waitpid(pid, &status, 0);
    result.exited = WIFEXITED(status);
    result.exitCode = result.exited ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.errors = readFile(errorsPath);
    return result;
}

} // namespace test
} // namespace orv
