// Numbers as text, character for character as Qt writes them, straight into an output: a double in
// fixed or scientific notation, an integer in a base from 2 to 16. The formatter writes hundreds of
// values per request; Qt would allocate two buffers for each.
#pragma once

#include <string>

class DecimalText
{
public:
    // As QString::number(value, format, precision) with format 'f' or 'e': correctly rounded, an
    // exact tie away from zero, a negative zero and every NaN without a sign.
    static void appendDouble(std::string& out, double value, char format, int precision);
    // Sign and magnitude, lower-case digits: -255 in base 16 is "-ff".
    static void appendInteger(std::string& out, long long value, int base);
    static void appendUnsigned(std::string& out, unsigned long long value, int base);

private:
    // Whether value * 10^decimals lies exactly halfway between two integers.
    static bool halfway(double value, int decimals);
};
