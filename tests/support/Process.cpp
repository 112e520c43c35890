#include "Process.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KvEmulator.h" // generated: the build's emulator command, empty for a native build

namespace orv::test {
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

std::vector<std::string> programCommand(std::string const& program, std::vector<std::string> const& args)
{
    std::vector<std::string> command;
    for (char const* const* item = kEmulator; *item != nullptr; ++item)
        command.push_back(*item);
    command.push_back(program);
    command.insert(command.end(), args.begin(), args.end());
    return command;
}

pid_t spawn(std::vector<std::string> const& argv, int outFd, int errFd, int inFd)
{
    std::vector<char*> args;
    for (auto const& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);

    pid_t const parent = getpid();
    fflush(nullptr);
    pid_t const pid = fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        // Ends with the test process however that ends; the check closes the race with a parent
        // that died before the request was made.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(126);
        for (auto const& [from, to] :
             {std::pair(inFd, STDIN_FILENO), {outFd, STDOUT_FILENO}, {errFd, STDERR_FILENO}})
            if (from >= 0)
                dup2(from, to);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

pid_t startSocketService(std::vector<std::string> const& argv, std::string const& socketPath)
{
    pid_t pid = spawn(argv);
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!accepts(socketPath)) {
        if (waitpid(pid, nullptr, WNOHANG) == pid)
            throw std::runtime_error(argv[0] + " exited at start (is it installed?)");
        if (std::chrono::steady_clock::now() > deadline) {
            stopProcess(pid);
            throw std::runtime_error(argv[0] + " did not open " + socketPath + " in time");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return pid;
}

int stopProcess(pid_t& pid)
{
    if (pid <= 0)
        return -1;
    kill(pid, SIGTERM);
    int status = 0;
    waitpid(pid, &status, 0);
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void expectNoSanitizerReport(std::string const& errors, std::string const& program)
{
    if (errors.find("Sanitizer:") != std::string::npos ||
        errors.find(": runtime error: ") != std::string::npos)
        ADD_FAILURE() << program << " reported:\n" << errors;
}

ProgramRun runProgram(std::vector<std::string> const& argv, std::string const& input, int timeoutSeconds)
{
    // Files, not pipes: a program that fills a pipe nobody reads would stall until the time limit.
    FILE* in = tmpfile();
    FILE* out = tmpfile();
    FILE* err = tmpfile();
    fwrite(input.data(), 1, input.size(), in);
    fflush(in);
    rewind(in);
    pid_t pid = spawn(argv, fileno(out), fileno(err), fileno(in));
    ProgramRun run;
    int status = 0;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            ADD_FAILURE() << argv[0] << " did not end within " << timeoutSeconds << " s";
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    auto const text = [](FILE* file) {
        rewind(file);
        std::string all;
        char buffer[4096];
        for (size_t n; (n = fread(buffer, 1, sizeof buffer, file)) > 0;)
            all.append(buffer, n);
        fclose(file);
        return all;
    };
    std::string const output = text(out);
    for (size_t start = 0; start < output.size();) {
        size_t const end = output.find('\n', start);
        run.lines.push_back(output.substr(start, end == std::string::npos ? std::string::npos : end - start));
        start = end == std::string::npos ? output.size() : end + 1;
    }
    run.err = text(err);
    fclose(in);
    expectNoSanitizerReport(run.err, argv[0]);
    return run;
}

} // namespace orv::test
