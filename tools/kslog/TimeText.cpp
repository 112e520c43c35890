#include "TimeText.h"

#include <cctype>
#include <cstdio>
#include <ctime>
#include <optional>

#include "Words.h"

namespace kslog {
namespace {

// "-N" and a unit: seconds before now.
std::optional<double> relative(std::string const& text)
{
    long long count = 0;
    char unit[8] = "";
    int used = 0;
    if (text.size() < 2 || !isdigit(static_cast<unsigned char>(text[1])) ||
        sscanf(text.c_str(), "-%9lld%7[a-z]%n", &count, unit, &used) != 2 || size_t(used) != text.size())
        return std::nullopt;
    std::string const u = unit;
    long long const scale = u == "s" || u == "sec"   ? 1
                            : u == "m" || u == "min" ? 60
                            : u == "h"               ? 3600
                            : u == "d"               ? 86400
                                                     : 0;
    if (scale == 0)
        return std::nullopt;
    return static_cast<double>(count * scale);
}

// Local midnight of the day of `wall`, moved by `days`.
double midnight(double wall, int days)
{
    time_t const now = static_cast<time_t>(wall);
    tm t{};
    localtime_r(&now, &t);
    t.tm_hour = t.tm_min = t.tm_sec = 0;
    t.tm_mday += days;
    t.tm_isdst = -1;
    return static_cast<double>(mktime(&t));
}

// The local time of those fields, when they name a real moment (mktime would carry 31 June over).
std::optional<double> localTime(int year, int month, int day, int hour, int minute, int second)
{
    tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    t.tm_isdst = -1;
    time_t const seconds = mktime(&t);
    if (seconds == time_t(-1) || t.tm_mday != day || t.tm_mon != month - 1 || t.tm_hour != hour ||
        t.tm_min != minute || second > 59)
        return std::nullopt;
    return static_cast<double>(seconds);
}

// "HH:MM" or "HH:MM:SS" from `at` to the end.
bool clockOf(char const* at, int& hour, int& minute, int& second)
{
    int used = 0;
    second = 0;
    if (sscanf(at, "%2d:%2d%n", &hour, &minute, &used) != 2)
        return false;
    if (at[used] == ':') {
        int more = 0;
        if (sscanf(at + used, ":%2d%n", &second, &more) != 1)
            return false;
        used += more;
    }
    return at[used] == '\0' && hour >= 0 && minute >= 0 && second >= 0;
}

std::optional<double> absolute(std::string const& text, double wallNow)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, used = 0;
    if (sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &used) == 3 && used == 10) {
        if (text.size() == 10)
            return localTime(year, month, day, 0, 0, 0);
        if (text[10] != ' ' || !clockOf(text.c_str() + 11, hour, minute, second))
            return std::nullopt;
        return localTime(year, month, day, hour, minute, second);
    }
    if (!clockOf(text.c_str(), hour, minute, second))
        return std::nullopt;
    time_t const now = static_cast<time_t>(wallNow);
    tm today{};
    localtime_r(&now, &today);
    return localTime(today.tm_year + 1900, today.tm_mon + 1, today.tm_mday, hour, minute, second);
}

} // namespace

char const* const TimeText::kForms =
    "\"YYYY-MM-DD HH:MM[:SS]\", \"YYYY-MM-DD\", \"HH:MM[:SS]\" (today), "
    "\"-30s\", \"-10min\", \"-2h\", \"-1d\", \"now\", \"today\" or \"yesterday\"";

double TimeText::parse(std::string const& text, std::string const& what, double wallNow)
{
    std::optional<double> wall;
    if (text == "now")
        wall = wallNow;
    else if (text == "today" || text == "yesterday")
        wall = midnight(wallNow, text == "today" ? 0 : -1);
    else if (auto const before = relative(text))
        wall = wallNow - *before;
    else
        wall = absolute(text, wallNow);
    if (!wall)
        throw cli::UsageError(what + " cannot be read as a time: \"" + text + "\"; give local time as " +
                              kForms);
    return *wall;
}

} // namespace kslog
