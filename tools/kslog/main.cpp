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

#include "BootClock.h"
#include "EntryPrinter.h"
#include "LogFollower.h"
#include "LuaFilter.h"
#include "RedisLink.h"
#include "TimeText.h"
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
    std::string usage;
    std::string details;
    char const* example;
    std::set<std::string> switches;   // options without a value
    std::set<std::string> withValues; // options that take one
    std::function<int(Options const&)> run;
};

// An option's value as a number within its range; `why` tells what the range stands for.
long long number(Options const& options, std::string const& name, long long low, long long high,
                 std::string const& why = "")
{
    return Words::toNumber(options.get(name), name, low, high, why);
}

int intOption(Options const& options, std::string const& name, int fallback, long long low = INT32_MIN)
{
    return options.has(name) ? static_cast<int>(number(options, name, low, INT32_MAX)) : fallback;
}

// The mask holds one bit per category, eight in all.
unsigned int maskOption(Options const& options)
{
    return static_cast<unsigned int>(
        number(options, "--mask", 0, 0xFF, "8 bits, one per category: 0x00 to 0xff"));
}

int maxOption(Options const& options)
{
    return static_cast<int>(number(options, "--max", 1, INT32_MAX,
                                   "at least 1: a log without a limit would grow until memory ends"));
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

// The filters that list and tail share, for stored and followed entries alike. Wall-clock bounds
// become times since boot through the clock offset of now.
kslog::LuaFilter filterOf(Options const& options, kslog::BootClock const& clock)
{
    kslog::LuaFilter filter;
    if (options.has("--category"))
        filter.requireCategories(categories(options.get("--category")));
    if (options.has("--source"))
        filter.requireSource(options.get("--source"));
    if (options.has("--grep"))
        filter.requireText(options.get("--grep"));
    std::optional<double> since, until;
    if (options.has("--since"))
        since = kslog::TimeText::parse(options.get("--since"), "--since", clock.wallNow());
    if (options.has("--until"))
        until = kslog::TimeText::parse(options.get("--until"), "--until", clock.wallNow());
    if (since && until && *since > *until)
        throw UsageError("--since is after --until: nothing could be shown");
    if (since)
        filter.requireTimeFrom(clock.bootOf(*since));
    if (until)
        filter.requireTimeUntil(clock.bootOf(*until));
    if (options.has("--lua"))
        filter.requireExpression(options.get("--lua"));
    return filter;
}

using Entries = std::vector<std::map<std::string, std::string>>;

Entries read(RedisLogger& logger, int from, int to, kslog::LuaFilter const& filter)
{
    Entries entries;
    std::string const expression = filter.expression();
    if (!logger.getLogEntriesFiltered(entries, from, to, filter.empty() ? nullptr : expression.c_str()))
        throw std::runtime_error(
            "no entries read: the server rejected the request or the filter (see above)");
    return entries;
}

// ---------------------------------------------------------------------------------------------
// Subcommands

int runList(Options const& options)
{
    int const from = intOption(options, "--from", 0);
    int const to = intOption(options, "--to", -1);
    kslog::BootClock const clock = kslog::BootClock::now();
    kslog::LuaFilter const filter = filterOf(options, clock);
    auto logger = connect();
    kslog::EntryPrinter const printer(stdout, g_settings.json, colourWanted(), clock);
    for (auto const& entry : read(*logger, from, to, filter))
        printer.print(entry);
    return 0;
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

// The newest `lines` entries that pass the filter: with a filter, the whole log is searched.
Entries newest(RedisLogger& logger, int lines, kslog::LuaFilter const& filter)
{
    if (lines == 0)
        return {};
    if (filter.empty())
        return read(logger, -lines, -1, filter);
    Entries entries = read(logger, 0, -1, filter);
    if (entries.size() > size_t(lines))
        entries.erase(entries.begin(), entries.end() - lines);
    return entries;
}

int runTail(Options const& options)
{
    int const lines = intOption(options, "-n", 10, 0);
    bool const follow = options.has("-f");
    if (follow && options.has("--until"))
        throw UsageError("--until ends a range, and a followed log has no end: leave out -f or --until");
    kslog::BootClock const clock = kslog::BootClock::now();
    kslog::LuaFilter const filter = filterOf(options, clock);
    auto logger = connect();
    kslog::EntryPrinter const printer(stdout, g_settings.json, colourWanted(), clock);
    for (auto const& entry : newest(*logger, lines, filter))
        printer.print(entry);
    if (!follow)
        return 0;
    kslog::LogFollower follower(g_settings.socket, "LOG:ENTRIES", filter.expression(), "kslog tail");
    follower.checkFilter();
    endWhenTheReaderGoes();
    follower.run([&printer](std::string const& entry) { return printer.printText(entry); });
    return 0; // nobody reads any more
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
    unsigned int const mask = options.has("--mask")     ? maskOption(options)
                              : options.has("--enable") ? maskOf(categories(options.get("--enable")))
                                                        : 0xF0;
    int const max = options.has("--max") ? maxOption(options) : 10000;
    char announcement[128];
    snprintf(announcement, sizeof announcement,
             "Applying new log configuration: mask(0x%x), SigSegV Regexp(%s), max logs(%d), instance(0x0)",
             mask, expression.c_str(), max);
    if (trigger.matches(announcement))
        throw UsageError("--segv matches the line every logger writes when it applies it (\"" +
                         std::string(announcement) + "\"): each would crash at once");
}

// What a configuration text says: -1 (mask) and 0 (max) for not given.
struct Configuration
{
    std::string source;
    long long mask = -1;
    int max = 0;
    std::string segv;
    std::string published; // the text for LOGGER:CFG
};

Configuration configurationOf(Options const& options)
{
    Configuration c;
    c.source = options.has("--source") ? options.get("--source") : "all";
    // Owned here: a value out of range throws while the object is being filled.
    std::unique_ptr<cJSON, void (*)(cJSON*)> const owner(cJSON_CreateObject(), cJSON_Delete);
    cJSON* text = owner.get();
    cJSON_AddStringToObject(text, "source", c.source.c_str());
    if (options.has("--pid"))
        cJSON_AddNumberToObject(text, "pid", static_cast<double>(number(options, "--pid", 1, INT32_MAX)));
    if (options.has("--mask") || options.has("--enable")) {
        c.mask = options.has("--mask") ? maskOption(options) : maskOf(categories(options.get("--enable")));
        cJSON_AddNumberToObject(text, "mask", static_cast<double>(c.mask));
    }
    if (options.has("--max")) {
        c.max = maxOption(options);
        cJSON_AddNumberToObject(text, "max", c.max);
    }
    if (options.has("--segv")) {
        c.segv = options.get("--segv");
        cJSON_AddStringToObject(text, "segvregex", c.segv.c_str());
    }
    char* json = cJSON_PrintUnformatted(text);
    c.published = json;
    cJSON_free(json);
    return c;
}

// Publishes on the loggers' channel; the server answers how many subscribers received it: one per
// process with a configurable logger (its listening thread), whatever the source they match.
long long publish(std::string const& text)
{
    kslog::RedisLink link(g_settings.socket);
    kslog::RedisLink::Reply const reply = link.command({"PUBLISH", RedisLogger::getLoggerCfgKey(), text});
    if (!reply || reply->type != REDIS_REPLY_INTEGER)
        throw std::runtime_error(
            "the configuration could not be published: " +
            (reply ? std::string(reply->str != nullptr ? reply->str : "") : link.error()));
    return reply->integer;
}

void reportConfig(Configuration const& c, bool saved, long long receivers)
{
    if (g_settings.json) {
        cJSON* object = cJSON_CreateObject();
        cJSON_AddStringToObject(object, "published", c.published.c_str());
        cJSON_AddNumberToObject(object, "receivers", static_cast<double>(receivers));
        cJSON_AddBoolToObject(object, "saved", saved);
        printJsonLine(object);
    } else {
        printf("published on %s: %s\nreceived by %lld running logger%s\n", RedisLogger::getLoggerCfgKey(),
               c.published.c_str(), receivers, receivers == 1 ? "" : "s");
        if (saved)
            printf("stored for \"%s\" in LOG:PERM:CFG (loggers read it when they start)\n", c.source.c_str());
    }
    fflush(stdout);
    // Not a failure: the text went out, and nothing running is a state a script may well meet.
    if (receivers == 0 && !saved)
        fprintf(stderr,
                "kslog config: warning: no running logger received it, so it changed nothing; add --save to "
                "make loggers started later use it\n");
}

int runConfig(Options const& options)
{
    if (options.has("--mask") && options.has("--enable"))
        throw UsageError("give either --mask or --enable, not both");
    bool const anything =
        options.has("--mask") || options.has("--enable") || options.has("--max") || options.has("--segv");
    if (!anything)
        throw UsageError("nothing to configure: give --mask, --enable, --max or --segv");
    // Loggers refuse a bad text too, but only after it has gone out to every process.
    Configuration const c = configurationOf(options);
    if (options.has("--segv"))
        checkCrashExpression(options);
    bool const save = options.has("--save");
    // Only what a stored record can hold: a mask, a maximum, an expression.
    if (save && c.mask < 0 && c.max < 1 && c.segv.empty())
        throw UsageError("--save needs --mask, --enable, --max or a non-empty --segv");

    auto logger = connect();
    if (save) {
        requirePermanentStore();
        std::string source = c.source;
        // The store reports false even when it kept the record; failures are printed by the logger.
        logger->saveConfig(source, c.mask < 0 ? 0xFFFFFFFFu : static_cast<unsigned int>(c.mask), c.max,
                           c.segv);
    }
    reportConfig(c, save, publish(c.published));
    return 0;
}

// The filters of list and tail.
std::string const kFilters =
    "[--category ERROR,WARN] [--source NAME] [--grep TEXT] [--since TIME] [--until TIME] "
    "[--lua EXPR]";
std::set<std::string> const kFilterOptions = {"--category", "--source", "--grep",
                                              "--since",    "--until",  "--lua"};

char const kFilterHelp[] =
    "  --category LIST    only these categories, in any case (DEBUG DIAG TRACE INFO WARN ERROR FATAL EMERG)\n"
    "  --source NAME      only entries of this source, in any case: kscom finds KSCOM\n"
    "  --grep TEXT        only messages containing TEXT (plain text, not a pattern)\n"
    "  --since TIME       only entries written at or after TIME, in local wall-clock time:\n"
    "                     \"YYYY-MM-DD HH:MM[:SS]\", \"YYYY-MM-DD\", \"HH:MM[:SS]\" (today),\n"
    "                     or before now: \"-30s\", \"-10min\", \"-2h\", \"-1d\"; also \"now\", \"today\", "
    "\"yesterday\"\n"
    "  --until TIME       only entries written at or before TIME (same forms)\n"
    "  --lua EXPR         only entries for which the Lua expression EXPR is true; `entry` is the\n"
    "                     entry's raw JSON text. The filters are run as a Lua script INSIDE the\n"
    "                     Redis server, over the whole log or range: keep expressions cheap.\n"
    "Times are local wall-clock times; entries carry the time since boot, which --json keeps as \"T\"\n"
    "beside \"time\". A clock change after an entry was written shifts the time shown for it.\n";

std::set<std::string> withFilters(std::set<std::string> names)
{
    names.insert(kFilterOptions.begin(), kFilterOptions.end());
    return names;
}

std::vector<Command> const& commands()
{
    static std::vector<Command> const all = {
        {"tail",
         "show the newest entries, and with -f follow new ones",
         "kslog tail [-n N|-N] [-f] " + kFilters,
         "  -n N, -N           how many of the newest (matching) entries to show first (default 10)\n"
         "  -f                 keep running and print each new (matching) entry as it is written; when the\n"
         "                     server goes away, wait for it and go on (Ctrl-C ends). Not with --until.\n" +
             std::string(kFilterHelp),
         "kslog tail -n 20 -f --source kscom --category error,fatal",
         {"-f"},
         withFilters({"-n"}),
         runTail},
        {"list",
         "show a range of entries, optionally filtered",
         "kslog list [--from N] [--to M] " + kFilters,
         std::string(
             "  --from N, --to M   list indices, oldest first; negative from the newest (default 0, -1)\n") +
             kFilterHelp,
         "kslog list --since \"2024-05-03 14:00\" --until -10min --category ERROR,FATAL --lua "
         "\"string.find(entry, 'trigger')\"",
         {},
         withFilters({"--from", "--to"}),
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
         "  --source NAME  the logger source to change, exactly as the loggers name it, or all (default "
         "all)\n"
         "  --pid P        only the process with this id\n"
         "  --mask 0x..    the new category mask, 0x00 to 0xff (0x01 DEBUG ... 0x80 EMERG; 0xff all)\n"
         "  --enable LIST  the new mask as category names, e.g. DEBUG,WARN,ERROR\n"
         "  --max N        how many entries the log keeps (at least 1)\n"
         "  --segv REGEX   crash the logging process (SIGSEGV) when a message matches; \"\" switches it off\n"
         "  --save         also store it, so that loggers started later use it (--pid is not stored)\n"
         "The change is published on LOGGER:CFG; every subscribed logger of the source applies it at once\n"
         "and writes an INFO entry saying so. kslog says how many running loggers received it "
         "(\"receivers\"\n"
         "with --json), and warns when none did and nothing was saved.\n",
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
        // A short option also takes its value joined to it: -n5.
        if (auto value = words.option(name, name.size() == 2 ? name : ""))
            options.values[name] = *value;
    }
    if (c.withValues.count("-n") != 0) {
        if (auto count = words.dashCount()) {
            if (options.has("-n"))
                throw UsageError("give -n N or -N, not both");
            options.values["-n"] = *count;
        }
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
