// Starting the programs a test needs (servers, the simulated camera, the tools). Every program
// started here ends with the test process, even when the test crashes: a leftover server would hold
// CTest's output pipe open.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace orv::test {

// The argument vector that runs a program of this build: directly, or through the build's emulator
// when the build is for another machine (the camera build under qemu-arm).
std::vector<std::string> programCommand(std::string const& program,
                                        std::vector<std::string> const& args = {});

// Runs argv (argv[0] looked up on PATH) with its standard input, output and error on the given
// descriptors (-1: the test's own). Throws std::runtime_error when it cannot fork. The program ends
// when the thread that started it ends: the kernel's parent-death signal follows threads.
pid_t spawn(std::vector<std::string> const& argv, int outFd = -1, int errFd = -1, int inFd = -1);

// Spawns argv and waits up to 10 s until socketPath accepts a connection; throws otherwise.
pid_t startSocketService(std::vector<std::string> const& argv, std::string const& socketPath);

// SIGTERM, then waits; pid becomes -1. Returns the exit code, or -1 when the program did not exit by
// itself (or pid was already -1).
int stopProcess(pid_t& pid);

// What a program wrote and how it ended.
struct ProgramRun
{
    int exitCode = -1;              // -1: ended by a signal or killed at the time limit
    std::vector<std::string> lines; // standard output, line by line
    std::string err;                // standard error
};

// Runs argv to its end with `input` on standard input, killed after `timeoutSeconds`; a sanitizer
// report on its standard error fails the running test.
ProgramRun runProgram(std::vector<std::string> const& argv, std::string const& input = "",
                      int timeoutSeconds = 30);

// Fails the running test when a program's standard error holds a sanitizer's report: in the
// sanitizer builds a child's report must fail its test whatever the test checks.
void expectNoSanitizerReport(std::string const& errors, std::string const& program);

} // namespace orv::test
