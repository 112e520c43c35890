#include "logger/LogEntryFormat.h"

#include <cctype>
#include <cstdio>

namespace orv {
namespace Logger {

char const* LogEntryFormat::categoryText(unsigned int category)
{
    for (CategoryName const& known : kCategories)
        if (known.bit == category)
            return known.name;
    return "UNKNOWN";
}

size_t LogEntryFormat::escape(char const* message, size_t length, char* out)
{
    size_t n = 0;
    for (size_t i = 0; i < length; ++i) {
        unsigned char const c = static_cast<unsigned char>(message[i]);
        // Control characters become '#' rather than JSON escapes, so an entry stays one line.
        if (c >= 0x80 || !isprint(c)) {
            out[n++] = '#';
            continue;
        }
        if (c == '"' || c == '/' || c == '\\')
            out[n++] = '\\';
        out[n++] = static_cast<char>(c);
    }
    out[n] = '\0';
    return n;
}

size_t LogEntryFormat::format(char* out, long seconds, long nanoseconds, int pid, unsigned int category,
                              char const* source, char const* escapedMessage)
{
    int const n = snprintf(
        out, kEntrySize, "{\"T\":\"%ld.%4.4ld\", \"P\":\"%d\", \"C\":\"%s\", \"S\":\"%s\", \"M\":\"%s\"}",
        seconds, nanoseconds / 100000, pid, categoryText(category), source, escapedMessage);
    if (n < 0)
        return 0;
    // KEPT: a cut entry is sent with its terminating zero, as the readers have always received it.
    return static_cast<size_t>(n) >= kEntrySize ? kEntrySize : static_cast<size_t>(n);
}

} // namespace Logger
} // namespace orv
