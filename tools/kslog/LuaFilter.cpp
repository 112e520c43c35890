#include "LuaFilter.h"

#include "logger/LogEntryFormat.h"

#include <cctype>
#include <cstdio>

namespace kslog {
namespace {

std::string plainFind(std::string const& haystack, std::string const& needle)
{
    return "string.find(" + haystack + ", " + LuaFilter::quote(needle) + ", 1, true)";
}

// The entry's time in seconds since boot; nil when it has none.
char const kEntryTime[] = "tonumber(string.match(entry, '\"T\":\"([0-9.]+)\"') or '')";

std::string number(double value)
{
    char text[64];
    snprintf(text, sizeof text, "%.4f", value);
    return text;
}

} // namespace

void LuaFilter::requireCategories(std::vector<std::string> const& categories)
{
    std::string any;
    for (auto const& category : categories) {
        if (!any.empty())
            any += " or ";
        any += plainFind("entry", "\"C\":\"" + category + "\"");
    }
    if (!any.empty())
        m_terms.push_back(any);
}

void LuaFilter::requireSource(std::string const& source)
{
    // Loggers write their source name as it is, unescaped, and it never holds a quote.
    std::string lower = source;
    for (char& c : lower)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    m_terms.push_back("string.lower(string.match(entry, '\"S\":\"([^\"]*)\"') or '') == " + quote(lower));
}

void LuaFilter::requireTimeFrom(double bootSeconds)
{
    m_terms.push_back("(" + std::string(kEntryTime) + " or -math.huge) >= " + number(bootSeconds));
}

void LuaFilter::requireTimeUntil(double bootSeconds)
{
    m_terms.push_back("(" + std::string(kEntryTime) + " or math.huge) <= " + number(bootSeconds));
}

void LuaFilter::requireText(std::string const& text)
{
    // The message is the last member, so searching from its key on searches the message only.
    m_terms.push_back(
        plainFind("string.sub(entry, (string.find(entry, '\"M\":\"', 1, true) or 1) + 5)", asStored(text)));
}

void LuaFilter::requireExpression(std::string const& expression)
{
    m_terms.push_back(expression);
}

std::string LuaFilter::expression() const
{
    std::string all;
    for (auto const& term : m_terms) {
        if (!all.empty())
            all += " and ";
        all += "(" + term + ")";
    }
    return all;
}

std::string LuaFilter::quote(std::string const& bytes)
{
    std::string out = "'";
    for (unsigned char c : bytes) {
        if (c == '\'' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (isprint(c)) {
            out += static_cast<char>(c);
        } else {
            char code[8];
            snprintf(code, sizeof code, "\\%03u", c);
            out += code;
        }
    }
    return out + "'";
}

std::string LuaFilter::asStored(std::string const& text)
{
    std::string out(2 * text.size() + 1, '\0');
    out.resize(orv::Logger::LogEntryFormat::escape(text.data(), text.size(), &out[0]));
    return out;
}

} // namespace kslog
