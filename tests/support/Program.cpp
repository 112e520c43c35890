#include "Program.h"

#include "KvEmulator.h" // generated: the build's emulator command, empty for a native build

namespace orv {
namespace test {

std::vector<std::string> programCommand(std::string const& program, std::vector<std::string> const& args)
{
    std::vector<std::string> command;
    for (char const* const* item = kEmulator; *item != nullptr; ++item)
        command.push_back(*item);
    command.push_back(program);
    command.insert(command.end(), args.begin(), args.end());
    return command;
}

} // namespace test
} // namespace orv
