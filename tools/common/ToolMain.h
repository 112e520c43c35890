// What every tool's main does the same way: it finds the subcommand among the words (the tool's
// options may stand before or after it), answers --help and --version, runs the subcommand, and
// reports a usage error (exit 2) or a failure (exit 1) in one style.
#pragma once

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Words.h"

namespace cli {

class ToolMain
{
public:
    struct Command
    {
        std::string name;
        std::string summary; // one line for the command list
        std::string usage;   // the words after the tool's name
        std::string details; // the command's options, one per line; may be empty
        std::string example; // a complete command line
        std::function<int(Words&)> run;
    };

    ToolMain(std::string name, std::string about) : m_name(std::move(name)), m_about(std::move(about)) {}

    // An option of the whole tool, for the help texts ("--json", "one JSON object per line").
    void addOption(std::string spelling, std::string help);
    void addCommand(Command command);

    // Runs the command line: `takeOptions` takes the tool's own options out of the words first.
    int main(int argc, char** argv, std::function<void(Words&)> const& takeOptions);
    // Runs one command's words (the tool's options already taken), as a session's line is run.
    int run(Words words) const;

    // The start of a tool without subcommands: answers --version and --help (with `help`), then runs
    // `parse`, a usage error told in the tools' style. The exit code to end with, or none to go on.
    static std::optional<int> startPlain(std::string const& name, Words& words,
                                         std::function<void()> const& help,
                                         std::function<void()> const& parse);

    Command const* find(std::string const& name) const;
    std::string const& name() const { return m_name; }
    void printHelp(FILE* to) const;
    void printCommandHelp(Command const& command) const;

private:
    int runCommand(Command const& command, Words& words) const;
    std::vector<std::string> names() const;

    std::string m_name;
    std::string m_about;
    std::vector<std::pair<std::string, std::string>> m_options;
    std::vector<Command> m_commands;
};

} // namespace cli
