#include "PluginChild.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TempDir.h"
#include "device/DeviceReplies.h"
#include "format/VORNFormatResults.h"

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

void LoadedPlugin::freeReply(DataBlock* reply, int command)
{
    if (reply != nullptr && reply->data != nullptr && command == 22)
        free(reinterpret_cast<VORNStatisticReply*>(reply->data)->value);
    if (reply != nullptr && reply->data != nullptr && command == 26)
        free(reinterpret_cast<FormatResultsReply*>(reply->data)->data);
    if (reply != nullptr)
        free(reply->data);
    free(reply);
}

void LoadedPlugin::send(void const* data, size_t size)
{
    auto const* p = static_cast<char const*>(data);
    while (size > 0) {
        ssize_t const n = write(outFd, p, size);
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
    char const* path = getenv("KV_PLUGIN");
    return path != nullptr ? path : KV_PLUGIN_PATH;
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
    if (plugin.init == nullptr || plugin.handleCall == nullptr)
        return 124;
    int const code = body(plugin);
    dlclose(lib);
    return code;
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
    pid_t const parent = getpid();
    pid_t const pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a plug-in child never outlives its test
        if (getppid() != parent)
            _exit(126);
        alarm(static_cast<unsigned>((timeoutMs + 999) / 1000)); // and ends when it takes too long
        close(fds[0]);
        int const err = open(errorsPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(err, STDERR_FILENO);
        close(err);
        int const code = runChild(body, path, fds[1]);
        fflush(nullptr);
        _exit(code);
    }
    close(fds[1]);
    ChildResult result;
    char buffer[65536];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) != 0) {
        if (n > 0)
            result.output.append(buffer, static_cast<size_t>(n));
        else if (errno != EINTR)
            break;
    }
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.exited = WIFEXITED(status);
    result.exitCode = result.exited ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.timedOut = result.signal == SIGALRM;
    std::ifstream errors(errorsPath);
    result.errors.assign(std::istreambuf_iterator<char>(errors), {});
    return result;
}

} // namespace test
} // namespace orv
