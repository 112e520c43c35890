// vorn-host: loads the plug-in as the host daemon does, sends one request per subcommand (or one per
// input line in a session) and prints the decoded reply.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "HostCommand.h"

using namespace vornhost;

namespace {

void printUsage(FILE* to)
{
    fprintf(to, "usage: vorn-host [--plugin PATH] [--json] COMMAND [ARGS]\n"
                "       vorn-host COMMAND --help\n\n"
                "Loads the plug-in like the host daemon, sends the request and prints the reply.\n"
                "The plug-in connects to Redis and the bus when it is loaded: see README.md for the\n"
                "ORV_* variables that point it at other sockets.\n\ncommands:\n");
    for (auto const& c : commands())
        fprintf(to, "  %-12s %s\n", c.name, c.summary);
    fprintf(to, "  %-12s %s\n", "session", "read one command per line from standard input");
}

void printCommandHelp(Command const& c)
{
    printf("usage: vorn-host %s\n\n%s\n\nexample:\n  %s\n", c.usage, c.summary, c.example);
}

std::string defaultPluginPath()
{
    if (char const* path = getenv("VORN_PLUGIN"))
        return path;
    struct stat st;
    if (stat(VORN_HOST_BUILD_PLUGIN, &st) == 0)
        return VORN_HOST_BUILD_PLUGIN;
    return "libkestrelvorn.so"; // installed: found through the loader's search path
}

// Runs one subcommand; lastId (sessions only) receives the result id a reply names.
int runOne(Plugin* plugin, std::vector<std::string> words, bool json, bool oneLine,
           std::string* lastId = nullptr)
{
    Command const* command = findCommand(words.front());
    if (command == nullptr) {
        fprintf(stderr, "vorn-host: unknown command \"%s\" (vorn-host --help lists them)\n",
                words.front().c_str());
        return 2;
    }
    Args args(std::vector<std::string>(words.begin() + 1, words.end()));
    if (args.flag("--help")) {
        printCommandHelp(*command);
        return 0;
    }
    Output out(json);
    try {
        if (plugin == nullptr && command->offline == nullptr)
            throw std::logic_error("no plug-in loaded");
        int code =
            command->offline != nullptr ? command->offline(out, args) : command->run(*plugin, out, args);
        out.print(oneLine);
        if (lastId != nullptr && out.value("id").isString())
            *lastId = out.value("id").toString().toStdString();
        fflush(stdout);
        return code;
    } catch (UsageError const& e) {
        fprintf(stderr, "vorn-host %s: %s\nusage: vorn-host %s\n", command->name, e.what(), command->usage);
        return 2;
    } catch (std::exception const& e) {
        fprintf(stderr, "vorn-host %s: %s\n", command->name, e.what());
        return 1;
    }
}

std::vector<std::string> splitWords(std::string const& line)
{
    // Words separated by blanks; double quotes keep blanks inside one word.
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, any = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (any)
                words.push_back(word);
            word.clear();
            any = false;
        } else {
            word += c;
            any = true;
        }
    }
    if (any)
        words.push_back(word);
    return words;
}

// One request per input line, one reply per output line; the exit code is the worst line's. The
// word "{id}" stands for the result id that the last acquire answered, so a script can acquire,
// query and free without knowing the id in advance.
int runSession(Plugin& plugin, bool json)
{
    int worst = 0;
    std::string line;
    std::string lastId;
    while (std::getline(std::cin, line)) {
        std::vector<std::string> words = splitWords(line);
        for (auto& word : words) {
            if (word == "{id}")
                word = lastId;
        }
        if (words.empty() || words.front()[0] == '#')
            continue;
        if (words.front() == "session") {
            fprintf(stderr, "vorn-host session: sessions do not nest\n");
            worst = std::max(worst, 2);
            continue;
        }
        worst = std::max(worst, runOne(&plugin, words, json, true, &lastId));
    }
    return worst;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    std::string pluginPath = defaultPluginPath();
    bool json = false;
    while (!words.empty() && words.front().rfind("--", 0) == 0) {
        std::string option = words.front();
        words.erase(words.begin());
        if (option == "--help") {
            printUsage(stdout);
            return 0;
        } else if (option == "--json") {
            json = true;
        } else if (option == "--plugin" && !words.empty()) {
            pluginPath = words.front();
            words.erase(words.begin());
        } else {
            fprintf(stderr, "vorn-host: unknown option %s\n", option.c_str());
            printUsage(stderr);
            return 2;
        }
    }
    if (words.empty()) {
        printUsage(stderr);
        return 2;
    }
    bool const session = words.front() == "session";
    if (session && words.size() > 1 && words[1] == "--help") {
        printf("usage: vorn-host [--json] session < requests.txt\n\n"
               "Reads one command per line (the same words as the subcommands, \"#\" starts a comment)\n"
               "and prints one reply per line, as JSON with --json. The word {id} stands for the\n"
               "result id of the last acquire.\n\n"
               "example:\n  printf 'acquire\\nquery {id} distance_image\\nfree {id}\\n' | vorn-host --json "
               "session\n");
        return 0;
    }
    if (!session && findCommand(words.front()) == nullptr) {
        fprintf(stderr, "vorn-host: unknown command \"%s\"\n", words.front().c_str());
        printUsage(stderr);
        return 2;
    }
    if (!session && words.size() > 1 && words[1] == "--help") {
        printCommandHelp(*findCommand(words.front()));
        return 0;
    }

    if (!session && findCommand(words.front())->offline != nullptr)
        return runOne(nullptr, words, json, false);
    try {
        Plugin plugin(pluginPath);
        return session ? runSession(plugin, json) : runOne(&plugin, words, json, false);
    } catch (std::exception const& e) {
        fprintf(stderr, "vorn-host: %s\n", e.what());
        return 3;
    }
}
