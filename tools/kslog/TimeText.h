// The times a person types for --since and --until, read as wall-clock seconds (since 1970).
#pragma once

#include <string>

namespace kslog {

class TimeText
{
public:
    // The accepted forms, for the error text and the help.
    static char const* const kForms;

    // "YYYY-MM-DD HH:MM[:SS]", "YYYY-MM-DD", "HH:MM[:SS]" (today), "-30s", "-10min", "-2h", "-1d",
    // "now", "today", "yesterday"; local time. Throws cli::UsageError naming `what` and the forms.
    static double parse(std::string const& text, std::string const& what, double wallNow);
};

} // namespace kslog
