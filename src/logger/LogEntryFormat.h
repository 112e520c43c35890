// The text of one log entry as the log readers expect it: a flat JSON object with time, process,
// category, source and message, never longer than 500 bytes and never containing a line break.
#pragma once

#include <cstddef>

namespace orv {
namespace Logger {

class LogEntryFormat
{
public:
    static constexpr size_t kEntrySize = 500;

    // The categories' names as entries carry them, one bit each.
    struct CategoryName
    {
        unsigned int bit;
        char const* name;
    };
    static constexpr CategoryName kCategories[] = {{0x01, "DEBUG"}, {0x02, "DIAG"}, {0x04, "TRACE"},
                                                   {0x08, "INFO"},  {0x10, "WARN"}, {0x20, "ERROR"},
                                                   {0x40, "FATAL"}, {0x80, "EMERG"}};

    // "DEBUG" ... "EMERG" for a single category bit, "UNKNOWN" for anything else.
    static char const* categoryText(unsigned int category);

    // Escapes message[0..length) into out (room for at least 2 * length + 1 bytes): non-printable
    // bytes become '#', quote, slash and backslash get a backslash. Returns the escaped length.
    static size_t escape(char const* message, size_t length, char* out);

    // Formats the entry into out (kEntrySize bytes) and returns the number of bytes to send: the
    // text's length, or kEntrySize when it was cut (the last byte is then the terminating zero).
    static size_t format(char* out, long seconds, long nanoseconds, int pid, unsigned int category,
                         char const* source, char const* escapedMessage);
};

} // namespace Logger
} // namespace orv
