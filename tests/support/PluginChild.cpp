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
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "Process.h"
#include "core/CommandId.h"
#include "device/DeviceReplies.h"
#include "format/VORNFormatResults.h"

namespace orv::test {

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
    if (reply != nullptr && reply->data != nullptr && command == CommandId::QueryStatisticInfo)
        free(reinterpret_cast<VORNStatisticReply*>(reply->data)->value);
    if (reply != nullptr && reply->data != nullptr && command == CommandId::FormatResults)
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
    void* lib = nullptr;
    if (!path.empty()) {
        lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (lib == nullptr) {
            fprintf(stderr, "dlopen: %s\n", dlerror());
            return 125;
        }
        plugin.init = reinterpret_cast<LoadedPlugin::InitFn>(dlsym(lib, "VORN_init"));
        plugin.handleCall = reinterpret_cast<LoadedPlugin::HandleCallFn>(dlsym(lib, "VORN_handle_call"));
        if (plugin.init == nullptr || plugin.handleCall == nullptr)
            return 124;
    }
    int const code = body(plugin);
    if (lib != nullptr)
        dlclose(lib);
    return code;
}

// The child ends with _exit, which skips LeakSanitizer's check at exit: in a sanitizer build it runs
// here, so that the plug-in leaking in a child fails its test as a leak in the test program does.
int leakChecked(int code)
{
#if defined(__SANITIZE_ADDRESS__)
    if (__lsan_do_recoverable_leak_check() != 0)
        return 121;
#endif
    return code;
}

} // namespace

PluginChild::PluginChild(std::function<int(LoadedPlugin&)> const& body, int timeoutMs,
                         std::string const& path)
{
    // Output and errors go to files: a child that writes much never waits for a parent that is busy.
    int const out = open(m_dir.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int const err = open(m_dir.file("stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0 || err < 0)
        throw std::runtime_error("cannot create the child's output files");
    fflush(nullptr);
    pid_t const parent = getpid();
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a plug-in child never outlives its test
        if (getppid() != parent)
            _exit(126);
        alarm(static_cast<unsigned>((timeoutMs + 999) / 1000)); // and ends when it takes too long
        dup2(err, STDERR_FILENO);
        int const code = runChild(body, path, out);
        fflush(nullptr);
        _exit(leakChecked(code));
    }
    close(out);
    close(err);
    if (m_pid < 0)
        throw std::runtime_error("fork failed");
}

PluginChild::~PluginChild()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

ChildResult PluginChild::wait()
{
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    ChildResult result;
    result.exited = WIFEXITED(status);
    result.exitCode = result.exited ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.timedOut = result.signal == SIGALRM;
    std::ifstream output(m_dir.file("out"), std::ios::binary);
    result.output.assign(std::istreambuf_iterator<char>(output), {});
    std::ifstream errors(m_dir.file("stderr"));
    result.errors.assign(std::istreambuf_iterator<char>(errors), {});
    expectNoSanitizerReport(result.errors, "the plug-in's child");
    return result;
}

} // namespace orv::test
