// The value formatter, one row per rule a client sees in the bytes of one value.
#include <climits>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include <QVariantMap>

#include "MessageCapture.h"
#include "format/VornFormatter.h"

using namespace std::string_literals;
using orv::test::MessageCapture;

namespace {

bool const bin = true, txt = false;

// Type, binary or text, value, further options, the bytes expected.
using Case = std::tuple<char const*, bool, QVariant, QVariantMap, std::string>;

Case const cases[] = {
    // Integers are clamped to their type and truncated toward zero.
    {"int8", bin, 300, {}, "\x7F"},
    {"uint16", bin, -5, {}, "\0\0"s},
    {"uint16", bin, 70000, {}, "\xFF\xFF"},
    {"uint32", txt, 1e12, {}, "4294967295"},
    {"int32", txt, -1e12, {}, "-2147483648"},
    {"int32", txt, 2.9, {}, "2"},
    {"int32", txt, -2.9, {}, "-2"},
    {"int32", txt, "nan", {}, "0"},
    {"int64", txt, "abc", {}, "0"},
    {"int32", txt, 16777217, {}, "16777217"}, // computed in double precision
    {"int32", bin, -2, {}, "\xFE\xFF\xFF\xFF"},
    // The scale applies first, then the offset, then the clamping: 250 * 0.5 + 10 = 135.
    {"int8", txt, 250, {{"scale", 0.5}, {"offset", 10}}, "127"},
    {"uint8", txt, 250, {{"scale", 0.5}, {"offset", 10}}, "135"},
    // Binary is little endian, reversed for big endian and network order.
    {"int16", bin, 258, {{"order", "little"}}, "\x02\x01"},
    {"int16", bin, 258, {{"order", "big"}}, "\x01\x02"},
    {"uint32", bin, 0x01020304, {{"order", "network"}}, "\1\2\3\4"},
    {"int64", bin, qlonglong(-2), {}, "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"},
    {"float32", bin, 1.5, {}, "\0\0\xC0\x3F"s},   // 1.5f is 0x3FC00000
    {"float32", bin, 1e300, {}, "\0\0\x80\x7F"s}, // beyond single precision: infinity
    // Other bases with lower-case digits; negative values as sign and magnitude.
    {"uint32", txt, 255, {{"base", 16}}, "ff"},
    {"uint8", txt, 5, {{"base", 2}}, "101"},
    {"int16", txt, -255, {{"base", 16}}, "-ff"},
    {"int64", txt, qlonglong(LLONG_MIN), {{"base", 16}}, "-8000000000000000"},
    {"uint64", txt, qulonglong(~0ULL), {{"base", 16}}, "ffffffffffffffff"},
    // Floats: notation, precision and separator; text keeps double precision.
    {"float32", txt, 1.5, {{"displayformat", "fixed"}}, "1.500000"},
    {"float32", txt, 1.5, {{"precision", 2}, {"decimalseparator", ",;"}}, "1,50"},
    {"float32", txt, 1234.5, {{"precision", 2}, {"displayformat", "scientific"}}, "1.23e+03"},
    // A tie is rounded away from zero, where the C library would round it to even.
    {"float32", txt, 99.5, {{"precision", 1}, {"displayformat", "scientific"}}, "1.0e+02"}, // carried
    {"float32", txt, -0.125, {{"precision", 2}}, "-0.13"},
    {"float32", txt, 2.5, {{"precision", 0}}, "3"},
    {"float32", txt, 125000, {{"precision", 1}, {"displayformat", "scientific"}}, "1.3e+05"},
    {"float32", txt, 0.1, {{"precision", 9}}, "0.100000000"},
    // Numeric fill: the sign first on signed types, zeros after it, no alignment; strings ignore it.
    {"float32", txt, 1.5, {{"numericfill", true}, {"width", 7}, {"precision", 1}, {"fill", "*"}}, "+0001.5"},
    {"int64", txt, qlonglong(-5), {{"numericfill", true}, {"width", 4}}, "-005"},
    {"uint8", txt, 7, {{"numericfill", true}, {"width", 4}}, "0007"},
    {"int8", txt, 5, {{"numericfill", true}, {"width", 3}, {"alignment", "left"}}, "+05"},
    {"string", txt, "ab", {{"numericfill", true}, {"width", 4}}, "  ab"},
    // Padding by alignment with the first character of the fill; never cut.
    {"int32", txt, 42, {{"width", 5}, {"fill", "*x"}, {"alignment", "right"}}, "***42"},
    {"int32", txt, 42, {{"width", 5}, {"fill", "*"}, {"alignment", "left"}}, "42***"},
    {"string", txt, "toolong", {{"width", 3}}, "toolong"},
    // Hex escapes only with two hex digits of either case; a backslash made by an escape starts none.
    {"string", txt, "A\\x41\\x39\\x3F\\x6f\\x0a\\x0DB", {}, "AA9?o\n\rB"},
    {"string", txt, "\\xzz\\x4", {}, "\\xzz\\x4"},
    {"string", txt, "\\x5cx41", {}, "\\x41"},
    {"string", txt, "a\\x00b", {}, "a\0b"s},
    {"string", bin, QString::fromUtf8("\xC3\xA4"), {}, "\xC3\xA4"}, // always UTF-8 text
    // Numbers as text with 15 significant digits, as the camera's system writes them.
    {"string", txt, 26.400000000000002, {}, "26.4"},
    {"string", txt, 0.30000000000000004, {}, "0.3"},
    {"string", txt, 1234567.1234567891, {}, "1234567.12345679"},
    {"string", txt, 1e21, {}, "1e+21"},
    // 64 bits: every digit of 2^53 + 1 kept unscaled; scaled in single precision, 2 * (2^53 + 1) gives 2^54.
    {"int64", txt, qlonglong(9007199254740993), {}, "9007199254740993"},
    {"int64", txt, qlonglong(9007199254740993), {{"scale", 2}}, "18014398509481984"},
    {"uint64", txt, "18446744073709551615", {}, "18446744073709551615"},
    {"int64", txt, 1e30, {}, "9223372036854775807"},
    {"int64", txt, -1e308, {{"scale", 1e30}}, "-9223372036854775808"},
};

} // namespace

TEST(VornFormatter, WritesEveryValueAsItsTypeAndValidOptionsSayWithoutAMessage)
{
    MessageCapture messages;
    for (auto const& [type, binary, value, options, expected] : cases) {
        SCOPED_TRACE(std::string(type) + " " + value.toString().toStdString());
        QVariantMap all = options;
        all.insert("type", type);
        all.insert("dataencoding", binary ? "binary" : "ascii");
        all.insert("busEndianness", 1u); // passed down with every element, never an unused one
        EXPECT_EQ(VornFormatter::formatValue(value, all).toStdString(), expected);
    }
    EXPECT_EQ(messages.all(), QStringList());
}
