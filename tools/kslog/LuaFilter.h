// Turns the list command's filters into one Lua expression over `entry`, the raw text of one stored
// entry, which the server evaluates for every entry of the range.
#pragma once

#include <string>
#include <vector>

namespace kslog {

class LuaFilter
{
public:
    void requireCategories(std::vector<std::string> const& categories);
    // The source's name in any case: "kscom" finds "KSCOM".
    void requireSource(std::string const& source);
    // Plain text (no patterns) searched in the message.
    void requireText(std::string const& text);
    // Entries stamped at or after `from`, at or before `until` (seconds since boot); an entry without
    // a time is in no range.
    void requireTimeFrom(double bootSeconds);
    void requireTimeUntil(double bootSeconds);
    // An expression of the user's own, taken as it is.
    void requireExpression(std::string const& expression);

    bool empty() const { return m_terms.empty(); }
    std::string expression() const;

    // A Lua string literal holding exactly the given bytes.
    static std::string quote(std::string const& bytes);
    // The text as the logger stores it in a message: quotes, slashes and backslashes escaped,
    // unprintable bytes as '#'.
    static std::string asStored(std::string const& text);

private:
    std::vector<std::string> m_terms;
};

} // namespace kslog
