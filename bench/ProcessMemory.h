// The calling process's resident memory, for tests and benchmarks that check memory stays flat.
#pragma once

#include <fstream>
#include <string>

namespace orv {
namespace test {

// Resident set size in kB from /proc/self/status, or -1 when it cannot be read.
inline long residentKb()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, 6, "VmRSS:") == 0)
            return std::stol(line.substr(6));
    return -1;
}

} // namespace test
} // namespace orv
