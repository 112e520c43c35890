// The faults the simulated camera's device services can be told to show: which methods take one,
// the kinds with their names and what each does, and the reading of "METHOD=KIND[:VALUE]" with a
// message that names the wrong part. The command line, the help and the bus's control call all use
// this one list.
#pragma once

#include <string>
#include <vector>

namespace camsim {

// How one method misbehaves. Set per method name ("vornTrigger", "getApplicationList", ...), or for
// every method with "*".
struct Fault
{
    enum Kind
    {
        None,
        ErrorReply,
        ResultCode,
        ExtraValue,
        WrongType,
        DoubleValue,
        NoReply,
        Slow,
        BadDictionary,
        NoVariant,
        MissingIndex,
        WideIndex,
        ValueType,
        TextCode,
    };
    Kind kind = None;
    int value = 0;
};

class FaultCatalog
{
public:
    struct Entry
    {
        char const* name;
        char const* what; // one line for the help
    };
    struct Kind
    {
        char const* name;
        Fault::Kind kind;
        char const* value; // what VALUE means ("MS"), or nullptr when the kind takes none
        long long low, high;
        char const* what;
    };

    static std::vector<Entry> const& methods();
    static std::vector<Kind> const& kinds();
    // As it is written: "noreply", "slow:MS".
    static std::string spelling(Kind const& kind);

    // Reads "METHOD=KIND[:VALUE]", e.g. "vornTrigger=code:5", "getStatistics=slow:2000". Returns an
    // empty text on success, else what is wrong and what would be right.
    static std::string parse(std::string const& text, std::string& method, Fault& fault);
};

} // namespace camsim
