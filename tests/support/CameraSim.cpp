#include "CameraSim.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "Program.h"

namespace orv {
namespace test {

CameraSim::CameraSim(CameraSimOptions const& options)
{
    char rate[32];
    snprintf(rate, sizeof rate, "%g", options.rate);
    std::vector<std::string> const command = programCommand(
        KV_CAMSIM_PATH, {"--rate", rate, "--size", options.size, "--ring", std::to_string(options.ring)});
    int fds[2];
    if (pipe(fds) != 0)
        throw std::runtime_error("pipe failed");
    fflush(nullptr);
    m_pid = fork();
    if (m_pid < 0)
        throw std::runtime_error("fork failed");
    if (m_pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        std::vector<char*> argv;
        for (std::string const& item : command)
            argv.push_back(const_cast<char*>(item.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    m_out = fds[0];
    if (readLine(20000) != "ready") {
        stop();
        throw std::runtime_error("camsim did not get ready");
    }
}

CameraSim::~CameraSim()
{
    stop();
}

std::string CameraSim::readLine(int timeoutMs)
{
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        size_t const end = m_pending.find('\n');
        if (end != std::string::npos) {
            std::string line = m_pending.substr(0, end);
            m_pending.erase(0, end + 1);
            return line;
        }
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return "";
        pollfd p{m_out, POLLIN, 0};
        int ready = poll(&p, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return "";
        char buffer[256];
        ssize_t n = read(m_out, buffer, sizeof buffer);
        if (n <= 0)
            return "";
        m_pending.append(buffer, static_cast<size_t>(n));
    }
}

std::string CameraSim::trigger()
{
    if (m_pid <= 0 || kill(m_pid, SIGUSR1) != 0)
        throw std::runtime_error("camsim is not running");
    std::string const line = readLine(10000);
    std::string const prefix = "published ";
    if (line.compare(0, prefix.size(), prefix) != 0 || line == prefix + "0")
        throw std::runtime_error("camsim published nothing: '" + line + "'");
    return line.substr(prefix.size());
}

int CameraSim::stop()
{
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        m_pid = -1;
    }
    if (m_out >= 0) {
        close(m_out);
        m_out = -1;
    }
    return m_exitCode;
}

std::vector<std::string> CameraSim::frameFiles() const
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(m_frames.path().c_str())) {
        while (dirent* entry = readdir(dir))
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
                names.push_back(entry->d_name);
        closedir(dir);
    }
    return names;
}

} // namespace test
} // namespace orv
