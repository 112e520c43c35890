#include "BootClock.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace kslog {
namespace {

double seconds(timespec const& t)
{
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// Local calendar time and milliseconds of a wall-clock time; false before 1970 or beyond time_t.
bool split(double wall, tm& local, int& millis)
{
    if (!(wall >= 0 && wall < 1e15))
        return false;
    double const whole = std::floor(wall);
    millis = static_cast<int>((wall - whole) * 1000);
    time_t const stamp = static_cast<time_t>(whole);
    return localtime_r(&stamp, &local) != nullptr;
}

} // namespace

BootClock BootClock::now()
{
    // The real-time clock read between two monotonic readings: their middle is its boot time.
    timespec before{}, wall{}, after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    clock_gettime(CLOCK_REALTIME, &wall);
    clock_gettime(CLOCK_MONOTONIC, &after);
    double const boot = (seconds(before) + seconds(after)) / 2;
    return BootClock(seconds(wall) - boot, boot);
}

std::optional<double> BootClock::secondsOf(std::string const& entryTime)
{
    char* end = nullptr;
    double const value = strtod(entryTime.c_str(), &end);
    if (entryTime.empty() || *end != '\0' || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::string BootClock::local(std::string const& entryTime) const
{
    std::optional<double> const boot = secondsOf(entryTime);
    tm t{};
    int millis = 0;
    if (!boot || !split(wallOf(*boot), t, millis))
        return "";
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.tm_year + 1900, t.tm_mon + 1,
             t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, millis);
    return text;
}

std::string BootClock::iso(std::string const& entryTime) const
{
    std::optional<double> const boot = secondsOf(entryTime);
    tm t{};
    int millis = 0;
    if (!boot || !split(wallOf(*boot), t, millis))
        return "";
    long const east = t.tm_gmtoff / 60;
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02ld:%02ld", t.tm_year + 1900,
             t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, millis, east < 0 ? '-' : '+',
             std::labs(east) / 60, std::labs(east) % 60);
    return text;
}

} // namespace kslog
