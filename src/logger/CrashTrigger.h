// The crash-trigger expression of a logger, compiled once when it is set: a ready message that it
// matches is turned into a crash, for post-mortem debugging. Checked before it is taken, so that no
// expression an operator sends can end a process by not compiling or hang it by backtracking.
#pragma once

#include <memory>
#include <regex>
#include <string>

namespace orv {
namespace Logger {

class CrashTrigger
{
public:
    // Longer expressions are refused: compiling is recursive, and no debugging session needs more.
    static constexpr size_t MaxLength = 256;

    // Takes the expression ("" switches the trigger off). False, with the reason in `error`, and
    // nothing changed when it does not compile (ECMAScript grammar; no back-references).
    bool set(std::string const& expression, std::string& error);
    std::string const& expression() const { return m_expression; }
    // Whether the expression is found in the message; false when none is set. Never throws, and
    // takes time proportional to the message's length times the expression's.
    bool matches(char const* message) const;

private:
    std::string m_expression;
    std::shared_ptr<std::regex const> m_compiled;
};

} // namespace Logger
} // namespace orv
