// The clock of the entries' times and its relation to the wall clock. A logger stamps each entry
// with CLOCK_MONOTONIC (seconds since boot, not counting suspend); the wall-clock time of an entry is
// that plus the offset between the real-time clock and the monotonic clock, taken once, now.
#pragma once

#include <optional>
#include <string>

namespace kslog {

class BootClock
{
public:
    // Reads both clocks now.
    static BootClock now();

    double wallOf(double bootSeconds) const { return bootSeconds + m_offset; }
    double bootOf(double wallSeconds) const { return wallSeconds - m_offset; }
    double wallNow() const { return wallOf(m_bootNow); }

    // An entry's "T" ("1234.0567") as local wall-clock text: "2024-05-03 14:02:11.123" for people,
    // "2024-05-03T14:02:11.123+02:00" for scripts. Empty when the text is no time.
    std::string local(std::string const& entryTime) const;
    std::string iso(std::string const& entryTime) const;

    static std::optional<double> secondsOf(std::string const& entryTime);

private:
    BootClock(double offset, double bootNow) : m_offset(offset), m_bootNow(bootNow) {}

    double m_offset; // wall-clock seconds at boot
    double m_bootNow;
};

} // namespace kslog
