// How a test starts a program of this build (a tool): directly, or, when the build is for another
// machine (the camera build under qemu-arm), through the same emulator that runs the tests.
#pragma once

#include <string>
#include <vector>

namespace orv {
namespace test {

// The argument vector that runs `program` with `args`; its first element is what to exec.
std::vector<std::string> programCommand(std::string const& program,
                                        std::vector<std::string> const& args = {});

} // namespace test
} // namespace orv
