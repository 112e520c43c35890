#include "SocketService.h"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace orv {
namespace test {
namespace {

bool accepts(std::string const& socketPath)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    socketPath.copy(addr.sun_path, sizeof addr.sun_path - 1);
    bool const ok = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

} // namespace

pid_t startSocketService(std::vector<std::string> const& argv, std::string const& socketPath)
{
    std::vector<char*> args;
    for (auto const& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);

    pid_t pid = fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        execvp(args[0], args.data());
        _exit(127);
    }
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!accepts(socketPath)) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid)
            throw std::runtime_error(argv[0] + " exited at start (is it installed?)");
        if (std::chrono::steady_clock::now() > deadline) {
            stopService(pid);
            throw std::runtime_error(argv[0] + " did not open " + socketPath + " in time");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return pid;
}

void stopService(pid_t& pid)
{
    if (pid <= 0)
        return;
    kill(pid, SIGTERM);
    int status = 0;
    waitpid(pid, &status, 0);
    pid = -1;
}

} // namespace test
} // namespace orv
