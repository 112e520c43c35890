#include "logger/CrashTrigger.h"

#include <algorithm>
#include <cctype>

namespace orv {
namespace Logger {

namespace {

// The longest number the library's compiler reads: the digits of a brace quantifier ("a{123,4567}")
// or of a back-reference ("\\12"). It adds them up in a long without an overflow check; more than five
// digits can never compile anyway, as the library allows 100000 states at most.
size_t longestNumber(std::string const& expression)
{
    size_t longest = 0;
    bool inBraces = false;
    size_t run = 0;
    for (size_t i = 0; i < expression.size(); ++i) {
        char const c = expression[i];
        if (c == '\\') {
            size_t digits = 0;
            while (i + 1 + digits < expression.size() &&
                   std::isdigit(static_cast<unsigned char>(expression[i + 1 + digits])))
                ++digits;
            longest = std::max(longest, digits);
            i += digits > 0 ? digits : 1; // the escaped character or the reference's digits
            inBraces = false;
            run = 0;
        } else if (c == '{') {
            inBraces = true;
            run = 0;
        } else if (std::isdigit(static_cast<unsigned char>(c)) && inBraces) {
            longest = std::max(longest, ++run);
        } else {
            inBraces = inBraces && c == ',';
            run = 0;
        }
    }
    return longest;
}

} // namespace

bool CrashTrigger::set(std::string const& expression, std::string& error)
{
    if (expression.size() > MaxLength) {
        error = "longer than " + std::to_string(MaxLength) + " characters";
        return false;
    }
    if (longestNumber(expression) > 5) {
        error = "a repeat count or back-reference of more than five digits";
        return false;
    }
    std::shared_ptr<std::regex const> compiled;
    if (!expression.empty()) {
        try {
            // The polynomial flag (a libstdc++ extension) selects the matcher without backtracking,
            // so an expression such as (a+)+b cannot make a log call hang.
            compiled = std::make_shared<std::regex const>(expression, std::regex::ECMAScript |
                                                                          std::regex_constants::__polynomial);
        } catch (std::regex_error const& e) {
            error = e.what();
            return false;
        }
    }
    m_expression = expression;
    m_compiled = std::move(compiled);
    return true;
}

bool CrashTrigger::matches(char const* message) const
{
    if (!m_compiled || message == nullptr)
        return false;
    try {
        return std::regex_search(message, *m_compiled);
    } catch (std::regex_error const&) {
        return false;
    }
}

} // namespace Logger
} // namespace orv
