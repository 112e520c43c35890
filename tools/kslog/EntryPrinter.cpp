#include "EntryPrinter.h"

#include <cstring>

#include <cjson/cJSON.h>

namespace kslog {
namespace {

std::string valueOf(EntryPrinter::Entry const& entry, char const* key)
{
    auto it = entry.find(key);
    return it == entry.end() ? std::string("?") : it->second;
}

char const* colourOf(std::string const& category)
{
    if (category == "ERROR" || category == "FATAL" || category == "EMERG")
        return "\033[31m";
    if (category == "WARN")
        return "\033[33m";
    if (category == "INFO")
        return "\033[32m";
    return "\033[2m";
}

} // namespace

void EntryPrinter::print(Entry const& entry) const
{
    if (m_json)
        printJson(entry);
    else
        printColumns(entry);
    fflush(m_out); // a follower piped into another program shows each entry as it comes
}

void EntryPrinter::printJson(Entry const& entry) const
{
    cJSON* object = cJSON_CreateObject();
    for (auto const& member : entry) {
        // Read back through cJSON, the members already hold the message as it was logged.
        cJSON_AddStringToObject(object, member.first.c_str(), member.second.c_str());
    }
    char* text = cJSON_PrintUnformatted(object);
    fprintf(m_out, "%s\n", text != nullptr ? text : "{}");
    cJSON_free(text);
    cJSON_Delete(object);
}

void EntryPrinter::printColumns(Entry const& entry) const
{
    std::string const category = valueOf(entry, "C");
    char const* on = m_colour ? colourOf(category) : "";
    char const* off = m_colour ? "\033[0m" : "";
    fprintf(m_out, "%12s %7s %s%-7s%s %-16s %s\n", valueOf(entry, "T").c_str(), valueOf(entry, "P").c_str(),
            on, category.c_str(), off, valueOf(entry, "S").c_str(), valueOf(entry, "M").c_str());
}

} // namespace kslog
