#include "ToolMain.h"

#include <algorithm>

namespace cli {

void ToolMain::addOption(std::string spelling, std::string help)
{
    m_options.emplace_back(std::move(spelling), std::move(help));
}

void ToolMain::addCommand(Command command)
{
    m_commands.push_back(std::move(command));
}

ToolMain::Command const* ToolMain::find(std::string const& name) const
{
    auto it = std::find_if(m_commands.begin(), m_commands.end(),
                           [&name](Command const& c) { return c.name == name; });
    return it == m_commands.end() ? nullptr : &*it;
}

std::vector<std::string> ToolMain::names() const
{
    std::vector<std::string> all;
    for (auto const& c : m_commands)
        all.push_back(c.name);
    return all;
}

void ToolMain::printHelp(FILE* to) const
{
    fprintf(to, "usage: %s [OPTIONS] COMMAND [ARGS]\n\n%s\n\ncommands:\n", m_name.c_str(), m_about.c_str());
    for (auto const& c : m_commands)
        fprintf(to, "  %-12s %s\n", c.name.c_str(), c.summary.c_str());
    fprintf(to, "\noptions (before or after the command):\n");
    for (auto const& [spelling, help] : m_options)
        fprintf(to, "  %-16s %s\n", spelling.c_str(), help.c_str());
    fprintf(to, "  %-16s %s\n  %-16s %s\n\n'%s COMMAND --help' shows a command's options and an example.\n",
            "--help", "this help", "--version", "the version of this tool", m_name.c_str());
}

void ToolMain::printCommandHelp(Command const& c) const
{
    printf("usage: %s %s\n\n%s\n", m_name.c_str(), c.usage.c_str(), c.summary.c_str());
    if (!c.details.empty())
        printf("\n%s", c.details.c_str());
    if (!m_options.empty()) {
        printf("\noptions of every command:\n");
        for (auto const& [spelling, help] : m_options)
            printf("  %-16s %s\n", spelling.c_str(), help.c_str());
    }
    printf("\nexample:\n  %s\n", c.example.c_str());
}

int ToolMain::main(int argc, char** argv, std::function<void(Words&)> const& takeOptions)
{
    Words words(std::vector<std::string>(argv + 1, argv + argc));
    if (words.flag("--version")) {
        printf("%s %s\n", m_name.c_str(), KV_VERSION);
        return 0;
    }
    bool const help = words.flag("--help", "-h");
    try {
        takeOptions(words);
    } catch (UsageError const& e) {
        fprintf(stderr, "%s: %s ('%s --help' lists the options)\n", m_name.c_str(), e.what(), m_name.c_str());
        return 2;
    }
    // "help CMD" before the command is looked for: CMD is a command's name, not the command to run.
    if (words.count() > 0 && words.at(0, "") == "help" && find("help") == nullptr) {
        Command const* asked = words.count() > 1 ? find(words.at(1, "")) : nullptr;
        if (asked == nullptr)
            printHelp(stdout);
        else
            printCommandHelp(*asked);
        return 0;
    }
    std::string const name = words.takeCommand(names());
    Command const* command = find(name);
    if (command == nullptr) {
        if (help || words.count() == 0) {
            printHelp(help ? stdout : stderr);
            return help ? 0 : 2;
        }
        fprintf(stderr, "%s: unknown command \"%s\" ('%s --help' lists them)\n", m_name.c_str(),
                words.at(0, "").c_str(), m_name.c_str());
        return 2;
    }
    if (help) {
        printCommandHelp(*command);
        return 0;
    }
    return runCommand(*command, words);
}

std::optional<int> ToolMain::startPlain(std::string const& name, Words& words,
                                        std::function<void()> const& help, std::function<void()> const& parse)
{
    if (words.flag("--version")) {
        printf("%s %s\n", name.c_str(), KV_VERSION);
        return 0;
    }
    if (words.flag("--help", "-h")) {
        help();
        return 0;
    }
    try {
        parse();
    } catch (UsageError const& e) {
        fprintf(stderr, "%s: %s ('%s --help' lists the options)\n", name.c_str(), e.what(), name.c_str());
        return 2;
    }
    return std::nullopt;
}

int ToolMain::run(Words words) const
{
    std::string const name = words.takeCommand(names());
    Command const* command = find(name);
    if (command == nullptr) {
        std::string const word = words.count() > 0 ? words.at(0, "") : "";
        fprintf(stderr, "%s: unknown command \"%s\" ('%s --help' lists them)\n", m_name.c_str(), word.c_str(),
                m_name.c_str());
        return 2;
    }
    if (words.flag("--help", "-h")) {
        printCommandHelp(*command);
        return 0;
    }
    return runCommand(*command, words);
}

int ToolMain::runCommand(Command const& command, Words& words) const
{
    try {
        return command.run(words);
    } catch (UsageError const& e) {
        fflush(stdout);
        fprintf(stderr, "%s %s: %s\nusage: %s %s\n", m_name.c_str(), command.name.c_str(), e.what(),
                m_name.c_str(), command.usage.c_str());
        return 2;
    } catch (Failure const& e) {
        fflush(stdout);
        fprintf(stderr, "%s %s: %s\n", m_name.c_str(), command.name.c_str(), e.what());
        return e.code;
    } catch (std::exception const& e) {
        fflush(stdout);
        fprintf(stderr, "%s %s: %s\n", m_name.c_str(), command.name.c_str(), e.what());
        return 1;
    }
}

} // namespace cli
