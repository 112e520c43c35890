#include "format/DecimalText.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Adds one in the last place to the digits in [from, to), passing over a point; true when it carried
// out of the first digit.
bool roundUp(char* from, char* to)
{
    for (char* p = to; p-- > from;) {
        if (*p == '.')
            continue;
        if (*p != '9') {
            ++*p;
            return false;
        }
        *p = '0';
    }
    return true;
}

} // namespace

bool DecimalText::halfway(double value, int decimals)
{
    if (value == 0 || !std::isfinite(value))
        return false;
    // value = m * 2^e with m odd: 2 * value * 10^d = m * 5^d * 2^(e + d + 1) is an odd integer, the
    // mark of a tie, exactly when e = -(d + 1) (and, for d < 0, when 5^-d divides m).
    int exponent = 0;
    uint64_t m = static_cast<uint64_t>(std::ldexp(std::frexp(std::fabs(value), &exponent), 53));
    int e = exponent - 53;
    while ((m & 1) == 0) {
        m >>= 1;
        ++e;
    }
    if (e != -(decimals + 1))
        return false;
    if (decimals >= 0)
        return true;
    if (-decimals > 22) // 5^23 has more bits than m
        return false;   // not reached: only values of 1e23 or more come here, and they have no tie
    uint64_t five = 1;
    for (int i = 0; i < -decimals; ++i)
        five *= 5;
    return m % five == 0;
}

void DecimalText::appendDouble(std::string& out, double value, char format, int precision)
{
    if (std::isnan(value)) {
        out += "nan";
        return;
    }
    char const* conversion = format == 'e' ? "%.*e" : "%.*f";
    char text[512]; // the longest fixed text of a double with 100 decimals is 412 characters
    // The C library's conversion, at a fraction of snprintf's cost; both round a tie to even.
    int n =
        int(std::to_chars(text, text + sizeof text - 1, value,
                          format == 'e' ? std::chars_format::scientific : std::chars_format::fixed, precision)
                .ptr -
            text);
    text[n] = '\0';
    int decimals = precision;
    if (format == 'e' && std::isfinite(value)) // "inf" has no exponent
        decimals -= atoi(strchr(text, 'e') + 1);
    if (halfway(value, decimals)) {
        // The C library rounds a tie to even, Qt away from zero. One digit more is exact and ends in
        // the 5 of the tie: drop it and round the magnitude up.
        n = snprintf(text, sizeof text, conversion, precision + 1, value);
        char* const digits = text + (text[0] == '-' ? 1 : 0);
        char* const end = format == 'e' ? strchr(text, 'e') : text + n;
        std::string exponent(end, text + n);
        char* last = end - 1;
        if (precision == 0)
            --last; // the point before the dropped digit goes too
        std::string body(text, size_t(last - text));
        size_t const first = size_t(digits - text);
        if (roundUp(&body[first], &body[0] + body.size())) {
            if (format == 'e') { // every digit is 0 now: "9.99e+01" became "0.00e+01", is "1.00e+02"
                body[first] = '1';
                int const power = atoi(exponent.c_str() + 1) + 1;
                char written[16];
                snprintf(written, sizeof written, "e%c%02d", power < 0 ? '-' : '+', std::abs(power));
                exponent = written;
            } else {
                body.insert(first, 1, '1');
            }
        }
        n = snprintf(text, sizeof text, "%s%s", body.c_str(), exponent.c_str());
    }
    char const* begin = text;
    if (value == 0 && text[0] == '-') // Qt writes a negative zero without its sign
        ++begin;
    out.append(begin, size_t(text + n - begin));
}

void DecimalText::appendUnsigned(std::string& out, unsigned long long value, int base)
{
    char digits[64];
    char const* end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
    out.append(digits, size_t(end - digits));
}

void DecimalText::appendInteger(std::string& out, long long value, int base)
{
    // The magnitude of the smallest value is computed unsigned, where it does not overflow.
    unsigned long long const magnitude =
        value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    if (value < 0)
        out += '-';
    appendUnsigned(out, magnitude, base);
}
