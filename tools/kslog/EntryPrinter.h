// Prints log entries for people (aligned columns, colours on a terminal) or for scripts (one JSON
// object per line).
#pragma once

#include <cstdio>
#include <map>
#include <string>

namespace kslog {

class EntryPrinter
{
public:
    using Entry = std::map<std::string, std::string>;

    EntryPrinter(FILE* out, bool json, bool colour) : m_out(out), m_json(json), m_colour(colour) {}

    // Also an entry the logger could not read back, as far as it can be read ("raw"). False when the
    // output could not be written (a reader that went away).
    bool print(Entry const& entry) const;

private:
    void printJson(Entry const& entry) const;
    void printColumns(Entry const& entry) const;

    FILE* m_out;
    bool m_json;
    bool m_colour;
};

} // namespace kslog
