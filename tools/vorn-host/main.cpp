// vorn-host: loads the plug-in as the host daemon does, sends one request per subcommand (or one per
// input line in a session) and prints the decoded reply.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "HostCommand.h"
#include "ServeCommand.h"
#include "ToolMain.h"
#include "core/Paths.h"

using namespace vornhost;

namespace {

std::string defaultPluginPath()
{
    if (char const* path = getenv("VORN_PLUGIN"))
        return path;
    struct stat st;
    if (stat(VORN_HOST_BUILD_PLUGIN, &st) == 0)
        return VORN_HOST_BUILD_PLUGIN;
    return "libkestrelvorn.so"; // installed: found through the loader's search path
}

// Run from a build tree, the plug-in and the checks here use the tree's schema unless told otherwise.
void defaultSchemaDir()
{
    struct stat st;
    if (getenv("ORV_VORN_SCHEMA_DIR") == nullptr && stat(orv::Paths::vornSchemaDir().c_str(), &st) != 0 &&
        stat(VORN_HOST_BUILD_SCHEMA, &st) == 0)
        setenv("ORV_VORN_SCHEMA_DIR", VORN_HOST_BUILD_SCHEMA, 1);
}

// What the tool's options chose, and the plug-in, loaded when the first command needs it.
struct Host
{
    std::string pluginPath = defaultPluginPath();
    bool json = false;
    bool session = false; // replies on one line each
    std::string lastId;   // the result id the last reply named (sessions)
    std::unique_ptr<Plugin> plugin;

    Plugin& loaded()
    {
        if (!plugin) {
            try {
                plugin = std::make_unique<Plugin>(pluginPath);
            } catch (std::exception const& e) {
                throw cli::Failure(e.what(), 3);
            }
        }
        return *plugin;
    }
};

int runCommand(Host& host, Command const& command, Args& args)
{
    Output out(host.json);
    int const code =
        command.offline != nullptr ? command.offline(out, args) : command.run(host.loaded(), out, args);
    out.print(host.session);
    if (out.value("id").isString())
        host.lastId = out.value("id").toString().toStdString();
    fflush(stdout);
    return code;
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
int runSession(cli::ToolMain const& tool, Host& host, Args& args)
{
    args.expectCount(0, 0);
    host.loaded();
    host.session = true;
    int worst = 0;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::vector<std::string> words = splitWords(line);
        for (auto& word : words) {
            if (word == "{id}")
                word = host.lastId;
        }
        if (words.empty() || words.front()[0] == '#')
            continue;
        if (words.front() == "session") {
            fprintf(stderr, "vorn-host session: sessions do not nest\n");
            worst = std::max(worst, 2);
            continue;
        }
        worst = std::max(worst, tool.run(Args(words)));
    }
    return worst;
}

// The formatter notes every option it defaults, once per value: a screenful for one answer. The byte
// map says the same per field; -v shows them.
void quiet(QtMsgType type, QMessageLogContext const&, QString const& text)
{
    if (type == QtFatalMsg)
        fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
}

} // namespace

int main(int argc, char** argv)
{
    defaultSchemaDir();
    Host host;
    cli::ToolMain tool("vorn-host",
                       "Loads the plug-in like the host daemon, sends the request and prints the "
                       "reply.\nThe plug-in connects to Redis and the bus when it is loaded: see "
                       "README.md for the\nORV_* variables that point it at other sockets.");
    tool.addOption("--plugin PATH", "the plug-in to load (default: this build's, else the installed one)");
    tool.addOption("--json", "the reply as JSON (one object per line in a session)");
    for (Command const& command : commands()) {
        tool.addCommand({command.name, command.summary, command.usage, "", command.example,
                         [&host, &command](Args& args) { return runCommand(host, command, args); }});
    }
    tool.addCommand(
        {"session", "read one command per line from standard input", "session < requests.txt",
         "Reads one command per line (the same words as the subcommands, \"#\" starts a comment)\n"
         "and prints one reply per line, as JSON with --json. The word {id} stands for the\n"
         "result id of the last acquire.\n",
         "printf 'acquire\\nquery {id} distance_image\\nfree {id}\\n' | vorn-host --json session",
         [&tool, &host](Args& args) { return runSession(tool, host, args); }});
    tool.addCommand({"serve", "a local web page that shows the camera live and shapes its output", ServeUsage,
                     ServeHelp, "vorn-host serve --listen 127.0.0.1:0",
                     [&host](Args& args) { return serve(host.pluginPath, args); }});
    tool.addOption("-v, --verbose", "show the plug-in's notes (the formatter's option notes among them)");
    return tool.main(argc, argv, [&host](Args& words) {
        host.json = words.flag("--json");
        if (!words.flag("--verbose", "-v"))
            qInstallMessageHandler(quiet);
        if (auto path = words.option("--plugin"))
            host.pluginPath = *path;
    });
}
