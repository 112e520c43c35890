// kslog: read, follow, count and clear the camera's log, and change what its loggers write while
// they run.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <poll.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <cjson/cJSON.h>
#include <hiredis/hiredis.h>

#include "EntryPrinter.h"
#include "LuaFilter.h"
#include "ToolMain.h"
#include "core/Paths.h"
#include "logger/CrashTrigger.h"
#include "logger/LogEntryFormat.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;

namespace {

using cli::UsageError;
using cli::Words;

// The tool's own options, taken wherever they stand.
struct Settings
{
    bool json = false;
    std::string socket = orv::Paths::redisCacheSocket();
};
Settings g_settings;

// A command's own options as given: name -> value ("" for switches).
struct Options
{
    std::map<std::string, std::string> values;

    bool has(std::string const& name) const { return values.count(name) != 0; }
    std::string const& get(std::string const& name) const { return values.at(name); }
};

struct Command
{
    char const* name;
    char const* summary;
    char const* usage;
    char const* details;
    char const* example;
    std::set<std::string> switches;   // options without a value
    std::set<std::string> withValues; // options that take one
    std::function<int(Options const&)> run;
};

long long toNumber(std::string const& text, char const* what, long long low, long long high)
{
    return Words::toNumber(text, what, low, high);
}

int toInt(std::string const& text, char const* what)
{
    return static_cast<int>(toNumber(text, what, INT32_MIN, INT32_MAX));
}

// ---------------------------------------------------------------------------------------------
// Helpers

std::vector<std::string> splitList(std::string const& text)
{
    std::vector<std::string> items;
    size_t start = 0;
    while (start <= text.size()) {
        size_t const comma = text.find(',', start);
        std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!item.empty())
            items.push_back(item);
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return items;
}

using orv::Logger::LogEntryFormat;

// Upper-cased, checked category names.
std::vector<std::string> categories(std::string const& list)
{
    std::vector<std::string> names;
    for (std::string item : splitList(list)) {
        std::transform(item.begin(), item.end(), item.begin(), ::toupper);
        bool const known =
            std::any_of(std::begin(LogEntryFormat::kCategories), std::end(LogEntryFormat::kCategories),
                        [&item](LogEntryFormat::CategoryName const& c) { return item == c.name; });
        if (!known)
            throw UsageError("unknown category \"" + item +
                             "\" (DEBUG, DIAG, TRACE, INFO, WARN, ERROR, FATAL, EMERG)");
        names.push_back(item);
    }
    if (names.empty())
        throw UsageError("no category given");
    return names;
}

unsigned int maskOf(std::vector<std::string> const& names)
{
    unsigned int mask = 0;
    for (auto const& name : names)
        for (auto const& c : LogEntryFormat::kCategories)
            if (name == c.name)
                mask |= c.bit;
    return mask;
}

std::unique_ptr<RedisLogger> connect()
{
    try {
        return std::make_unique<RedisLogger>("kslog", g_settings.socket.c_str(), "LOG:ENTRIES", false);
    } catch (std::exception const& e) {
        throw std::runtime_error("cannot reach Redis at " + g_settings.socket + ": " + e.what());
    }
}

void printJsonLine(cJSON* object)
{
    char* text = cJSON_PrintUnformatted(object);
    printf("%s\n", text);
    cJSON_free(text);
    cJSON_Delete(object);
}

bool colourWanted()
{
    char const* term = getenv("TERM");
    return isatty(STDOUT_FILENO) && getenv("NO_COLOR") == nullptr && term != nullptr &&
           strcmp(term, "dumb") != 0;
}

// ---------------------------------------------------------------------------------------------
// Subcommands

int runList(Options const& options)
{
    int const from = options.has("--from") ? toInt(options.get("--from"), "--from") : 0;
    int const to = options.has("--to") ? toInt(options.get("--to"), "--to") : -1;
    kslog::LuaFilter filter;
    if (options.has("--category"))
        filter.requireCategories(categories(options.get("--category")));
    if (options.has("--source"))
        filter.requireSource(options.get("--source"));
    if (options.has("--grep"))
        filter.requireText(options.get("--grep"));
    if (options.has("--lua"))
        filter.requireExpression(options.get("--lua"));

    auto logger = connect();
    std::vector<std::map<std::string, std::string>> entries;
    std::string const expression = filter.expression();
    if (!logger->getLogEntriesFiltered(entries, from, to, filter.empty() ? nullptr : expression.c_str()))
        throw std::runtime_error(
            "no entries read: the server rejected the request or the filter (see above)");
    kslog::EntryPrinter const printer(stdout, g_settings.json, colourWanted());
    for (auto const& entry : entries)
        printer.print(entry);
    return 0;
}

kslog::EntryPrinter const* g_follower = nullptr;

void printFollowed(std::map<std::string, std::string>& entry)
{
    if (!g_follower->print(entry))
        _exit(0); // nobody reads any more
}

// A follower whose reader went away (kslog tail -f | head -1) ends at once, not only at the next
// entry: the write end of a pipe reports an error when the read end is closed.
void endWhenTheReaderGoes()
{
    struct stat info;
    if (fstat(STDOUT_FILENO, &info) != 0 || !(S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode)))
        return;
    std::thread([] {
        pollfd out{STDOUT_FILENO, 0, 0};
        while (poll(&out, 1, -1) < 0 && errno == EINTR) {
        }
        _exit(0);
    }).detach();
}

int runTail(Options const& options)
{
    int const lines = options.has("-n") ? toInt(options.get("-n"), "-n") : 10;
    if (lines < 0)
        throw UsageError("-n must not be negative");
    auto logger = connect();
    kslog::EntryPrinter const printer(stdout, g_settings.json, colourWanted());
    if (lines > 0) {
        std::vector<std::map<std::string, std::string>> entries;
        if (!logger->getLogEntriesFiltered(entries, -lines, -1, nullptr))
            throw std::runtime_error("no entries read (see above)");
        for (auto const& entry : entries)
            printer.print(entry);
    }
    if (!options.has("-f"))
        return 0;
    g_follower = &printer;
    endWhenTheReaderGoes();
    logger->subscribeLatest(printFollowed); // returns only when the connection ends
    throw std::runtime_error("the connection to Redis ended");
}

int runCount(Options const&)
{
    auto logger = connect();
    int const count = logger->countLogs();
    if (g_settings.json) {
        cJSON* object = cJSON_CreateObject();
        cJSON_AddNumberToObject(object, "count", count);
        printJsonLine(object);
    } else {
        printf("%d\n", count);
    }
    return 0;
}

int runClear(Options const&)
{
    auto logger = connect();
    int const count = logger->countLogs();
    if (!logger->deleteLogs())
        throw std::runtime_error("the log was not cleared (see above)");
    if (g_settings.json) {
        cJSON* object = cJSON_CreateObject();
        cJSON_AddNumberToObject(object, "cleared", count);
        printJsonLine(object);
    } else {
        printf("cleared %d entries\n", count);
    }
    return 0;
}

// The permanent store answers on its own socket; saving reports nothing useful about it.
void requirePermanentStore()
{
    std::string const path = orv::Paths::redisSocket();
    redisContext* store = redisConnectUnix(path.c_str());
    bool const reachable = store != nullptr && store->err == 0;
    std::string const error = store == nullptr ? "out of memory" : (store->err != 0 ? store->errstr : "");
    if (store != nullptr)
        redisFree(store);
    if (!reachable)
        throw std::runtime_error("cannot reach the configuration store at " + path + ": " + error);
}

// A crash expression must compile as the loggers compile it, and must not match the line that a
// logger writes when it applies it: every logger would then crash at once instead of on the
// message the expression was meant for.
void checkCrashExpression(Options const& options)
{
    std::string const expression = options.get("--segv");
    orv::Logger::CrashTrigger trigger;
    std::string error;
    if (!trigger.set(expression, error))
        throw UsageError("--segv is not a valid regular expression: " + error);
    long long const mask = options.has("--mask") ? toNumber(options.get("--mask"), "--mask", 0, 0xFFFFFFFFLL)
                           : options.has("--enable") ? maskOf(categories(options.get("--enable")))
                                                     : 0xF0;
    int const max = options.has("--max") ? toInt(options.get("--max"), "--max") : 10000;
    char announcement[128];
    snprintf(announcement, sizeof announcement,
             "Applying new log configuration: mask(0x%llx), SigSegV Regexp(%s), max logs(%d), instance(0x0)",
             mask, expression.c_str(), max);
    if (trigger.matches(announcement))
        throw UsageError("--segv matches the line every logger writes when it applies it (\"" +
                         std::string(announcement) + "\"): each would crash at once");
}

int runConfig(Options const& options)
{
    if (options.has("--mask") && options.has("--enable"))
        throw UsageError("give either --mask or --enable, not both");
    bool const anything =
        options.has("--mask") || options.has("--enable") || options.has("--max") || options.has("--segv");
    if (!anything)
        throw UsageError("nothing to configure: give --mask, --enable, --max or --segv");
    // Loggers refuse these too, but only after the text has gone out to every process.
    if (options.has("--max") && toInt(options.get("--max"), "--max") < 1)
        throw UsageError("--max must be at least 1: a log without a limit would grow until memory ends");
    if (options.has("--segv"))
        checkCrashExpression(options);

    std::string source = options.has("--source") ? options.get("--source") : "all";
    cJSON* text = cJSON_CreateObject();
    cJSON_AddStringToObject(text, "source", source.c_str());
    if (options.has("--pid"))
        cJSON_AddNumberToObject(text, "pid", toInt(options.get("--pid"), "--pid"));
    long long mask = -1;
    if (options.has("--mask")) {
        mask = toNumber(options.get("--mask"), "--mask", 0, 0xFFFFFFFFLL);
        cJSON_AddNumberToObject(text, "mask", static_cast<double>(mask));
    }
    if (options.has("--enable")) {
        mask = maskOf(categories(options.get("--enable")));
        cJSON_AddNumberToObject(text, "mask", static_cast<double>(mask));
    }
    int max = 0;
    if (options.has("--max")) {
        max = toInt(options.get("--max"), "--max");
        cJSON_AddNumberToObject(text, "max", max);
    }
    std::string const segv = options.has("--segv") ? options.get("--segv") : "";
    if (options.has("--segv"))
        cJSON_AddStringToObject(text, "segvregex", segv.c_str());
    char* json = cJSON_PrintUnformatted(text);
    std::string const published = json;
    cJSON_free(json);
    cJSON_Delete(text);

    auto logger = connect();
    if (options.has("--save")) {
        // Only what a stored record can hold: a mask, a maximum above 0, an expression.
        if (mask < 0 && max < 1 && segv.empty())
            throw UsageError("--save needs --mask, --enable, --max above 0 or a non-empty --segv");
        requirePermanentStore();
        // The store reports false even when it kept the record; failures are printed by the logger.
        logger->saveConfig(source, mask < 0 ? 0xFFFFFFFFu : static_cast<unsigned int>(mask), max, segv);
    }
    if (!logger->redisPushConfig(published.c_str(), static_cast<unsigned int>(published.size())))
        throw std::runtime_error("the configuration could not be published");

    if (g_settings.json) {
        cJSON* object = cJSON_CreateObject();
        cJSON_AddStringToObject(object, "published", published.c_str());
        cJSON_AddBoolToObject(object, "saved", options.has("--save"));
        printJsonLine(object);
    } else {
        printf("published on %s: %s\n", RedisLogger::getLoggerCfgKey(), published.c_str());
        if (options.has("--save"))
            printf("stored for \"%s\" in LOG:PERM:CFG (loggers read it when they start)\n", source.c_str());
    }
    return 0;
}

std::vector<Command> const& commands()
{
    static std::vector<Command> const all = {
        {"tail",
         "show the newest entries, and with -f follow new ones",
         "kslog tail [-n N] [-f]",
         "  -n N        how many of the newest entries to show first (default 10)\n"
         "  -f          keep running and print each new entry as it is written (Ctrl-C ends)\n",
         "kslog tail -n 20 -f",
         {"-f"},
         {"-n"},
         runTail},
        {"list",
         "show a range of entries, optionally filtered",
         "kslog list [--from N] [--to M] [--category ERROR,WARN] [--source NAME] [--grep TEXT] [--lua EXPR]",
         "  --from N, --to M   list indices, oldest first; negative count from the newest (default 0 and "
         "-1)\n"
         "  --category LIST    only these categories (DEBUG DIAG TRACE INFO WARN ERROR FATAL EMERG)\n"
         "  --source NAME      only entries of this source, e.g. KSCOM\n"
         "  --grep TEXT        only messages containing TEXT (plain text, not a pattern)\n"
         "  --lua EXPR         only entries for which the Lua expression EXPR is true; `entry` is the\n"
         "                     entry's raw JSON text. The filters are run as a Lua script INSIDE the\n"
         "                     Redis server, over the whole range: keep expressions cheap.\n",
         "kslog list --from -100 --category ERROR,FATAL --source KSCOM --lua \"string.find(entry, "
         "'trigger')\"",
         {},
         {"--from", "--to", "--category", "--source", "--grep", "--lua"},
         runList},
        {"count",
         "print the number of stored entries",
         "kslog count",
         "",
         "kslog count --json",
         {},
         {},
         runCount},
        {"clear", "delete all stored entries", "kslog clear", "", "kslog clear", {}, {}, runClear},
        {"config",
         "change what running loggers write (and with --save, what new ones start with)",
         "kslog config [--source NAME|all] [--pid P] [--mask 0x..|--enable CAT,...] [--max N] [--segv REGEX] "
         "[--save]",
         "  --source NAME  the logger source to change, or all (default all)\n"
         "  --pid P        only the process with this id\n"
         "  --mask 0x..    the new category mask (0x01 DEBUG ... 0x80 EMERG; 0xff all)\n"
         "  --enable LIST  the new mask as category names, e.g. DEBUG,WARN,ERROR\n"
         "  --max N        how many entries the log keeps\n"
         "  --segv REGEX   crash the logging process (SIGSEGV) when a message matches; \"\" switches it off\n"
         "  --save         also store it, so that loggers started later use it (--pid is not stored)\n"
         "The change is published on LOGGER:CFG; every subscribed logger of the source applies it at once\n"
         "and writes an INFO entry saying so.\n",
         "kslog config --source KSCOM --enable DEBUG,INFO,WARN,ERROR,FATAL,EMERG --save",
         {"--save"},
         {"--source", "--pid", "--mask", "--enable", "--max", "--segv"},
         runConfig},
    };
    return all;
}

// Takes the command's options out of the words; nothing else may be left.
Options take(Command const& c, Words& words)
{
    Options options;
    for (auto const& name : c.withValues) {
        if (auto value = words.option(name))
            options.values[name] = *value;
    }
    for (auto const& name : c.switches) {
        if (words.flag(name))
            options.values[name] = "";
    }
    words.expectCount(0, 0);
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    // A write to a server that went away must end in an error message, not in SIGPIPE.
    signal(SIGPIPE, SIG_IGN);
    cli::ToolMain tool("kslog", "Reads, follows and configures the camera's log.");
    tool.addOption("--socket PATH",
                   "Redis socket of the log (default: " + orv::Paths::redisCacheSocket() + ")");
    tool.addOption("--json", "output for scripts: one JSON object per line");
    for (Command const& c : commands()) {
        std::string usage = c.usage;
        usage.erase(0, usage.find(' ') + 1); // the words after the tool's name
        tool.addCommand({c.name, c.summary, usage, c.details, c.example,
                         [&c](Words& words) { return c.run(take(c, words)); }});
    }
    return tool.main(argc, argv, [](Words& words) {
        g_settings.json = words.flag("--json");
        if (auto socket = words.option("--socket"))
            g_settings.socket = *socket;
    });
}
