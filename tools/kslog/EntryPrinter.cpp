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

// The members a cut entry still holds: the logger cuts an entry at 500 bytes, inside its message,
// so its time, pid, category and source are whole and the message is there up to the cut.
EntryPrinter::Entry readCut(std::string const& raw)
{
    EntryPrinter::Entry entry;
    size_t at = 0;
    for (char const* key : {"T", "P", "C", "S", "M"}) {
        std::string const opening = std::string("\"") + key + "\":\"";
        at = raw.find(opening, at);
        if (at == std::string::npos)
            break;
        std::string value;
        for (at += opening.size(); at < raw.size() && raw[at] != '"' && raw[at] != '\0'; ++at)
            value += raw[at] == '\\' && at + 1 < raw.size() ? raw[++at] : raw[at];
        entry[key] = key[0] == 'M' && (at >= raw.size() || raw[at] != '"') ? value + " [cut]" : value;
    }
    return entry;
}

} // namespace

bool EntryPrinter::printText(std::string const& text) const
{
    // Read as the logger reads its stored entries, so that a followed entry shows as a listed one.
    Entry entry{{"T", "?"}, {"P", "?"}, {"C", "?"}, {"S", "?"}, {"M", "Unrecognized entry"}};
    cJSON* root = cJSON_Parse(text.c_str());
    for (cJSON* member = root != nullptr ? root->child : nullptr; member != nullptr; member = member->next) {
        if (member->string == nullptr)
            continue;
        char* json = cJSON_IsString(member) ? nullptr : cJSON_PrintUnformatted(member);
        entry[member->string] = json != nullptr ? json : cJSON_IsString(member) ? member->valuestring : "";
        cJSON_free(json);
    }
    if (root == nullptr)
        entry["raw"] = text;
    cJSON_Delete(root);
    return print(entry);
}

bool EntryPrinter::print(Entry const& entry) const
{
    auto const raw = entry.find("raw");
    Entry const cut = raw != entry.end() ? readCut(raw->second) : Entry();
    Entry const& shown = cut.size() == 5 ? cut : entry;
    if (m_json)
        printJson(shown);
    else
        printColumns(shown);
    // A follower piped into another program shows each entry as it comes, and learns when nobody
    // reads any more.
    return fflush(m_out) == 0 && !ferror(m_out);
}

void EntryPrinter::printJson(Entry const& entry) const
{
    cJSON* object = cJSON_CreateObject();
    for (auto const& member : entry) {
        // Read back through cJSON, the members already hold the message as it was logged.
        cJSON_AddStringToObject(object, member.first.c_str(), member.second.c_str());
    }
    std::string const time = m_clock.iso(valueOf(entry, "T"));
    if (!time.empty())
        cJSON_AddStringToObject(object, "time", time.c_str());
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
    std::string const time = m_clock.local(valueOf(entry, "T"));
    fprintf(m_out, "%-23s %7s %s%-7s%s %-16s %s\n", time.empty() ? valueOf(entry, "T").c_str() : time.c_str(),
            valueOf(entry, "P").c_str(), on, category.c_str(), off, valueOf(entry, "S").c_str(),
            valueOf(entry, "M").c_str());
}

} // namespace kslog
