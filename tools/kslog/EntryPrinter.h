// Prints log entries for people (aligned columns, colours on a terminal) or for scripts (one JSON
// object per line). People see an entry's local wall-clock time; scripts get it as "time" beside the
// entry's own time since boot ("T").
#pragma once

#include <cstdio>
#include <map>
#include <string>

#include "BootClock.h"

namespace kslog {

class EntryPrinter
{
public:
    using Entry = std::map<std::string, std::string>;

    EntryPrinter(FILE* out, bool json, bool colour, BootClock clock)
        : m_out(out), m_json(json), m_colour(colour), m_clock(clock)
    {}

    // Also an entry the logger could not read back, as far as it can be read ("raw"). False when the
    // output could not be written (a reader that went away).
    bool print(Entry const& entry) const;
    // An entry as the logger wrote it (a followed one): its JSON text, or a text that is none.
    bool printText(std::string const& text) const;

private:
    void printJson(Entry const& entry) const;
    void printColumns(Entry const& entry) const;

    FILE* m_out;
    bool m_json;
    bool m_colour;
    BootClock m_clock;
};

} // namespace kslog
