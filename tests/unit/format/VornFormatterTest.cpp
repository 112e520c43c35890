#include <cstring>

#include <gtest/gtest.h>

#include <QVariantMap>

#include "MessageCapture.h"
#include "format/VornFormatter.h"

using orv::test::MessageCapture;

namespace {

QByteArray binary(char const* type, QVariant const& value, QVariantMap options = {})
{
    options.insert("type", type);
    options.insert("dataencoding", "binary");
    return VornFormatter::formatValue(value, options);
}

std::string text(char const* type, QVariant const& value, QVariantMap options = {})
{
    options.insert("type", type);
    options.insert("dataencoding", "ascii");
    return VornFormatter::formatValue(value, options).toStdString();
}

QByteArray bytes(std::initializer_list<unsigned char> list)
{
    QByteArray out;
    for (unsigned char b : list)
        out.append(static_cast<char>(b));
    return out;
}

} // namespace

TEST(VornFormatter, ClampsIntegersToTheirTypeAndTruncatesTowardZero)
{
    EXPECT_EQ(binary("int8", 300), bytes({0x7F}));
    EXPECT_EQ(text("int8", 300), "127");
    EXPECT_EQ(text("int8", -300), "-128");
    EXPECT_EQ(binary("uint16", -5), bytes({0x00, 0x00}));
    EXPECT_EQ(binary("uint16", 70000), bytes({0xFF, 0xFF}));
    EXPECT_EQ(text("uint32", 1e12), "4294967295");
    EXPECT_EQ(text("int32", -1e12), "-2147483648");
    EXPECT_EQ(text("int32", 2.9), "2");
    EXPECT_EQ(text("int32", -2.9), "-2");
    EXPECT_EQ(binary("int32", -2), bytes({0xFE, 0xFF, 0xFF, 0xFF}));
}

TEST(VornFormatter, ScalesAndOffsetsBeforeClamping)
{
    // 10 + 250 * 0.5 = 135, beyond int8; the offset applies after the scale.
    EXPECT_EQ(text("int8", 250, {{"scale", 0.5}, {"offset", 10}}), "127");
    EXPECT_EQ(text("uint8", 250, {{"scale", 0.5}, {"offset", 10}}), "135");
    EXPECT_EQ(text("int16", "41.27", {{"scale", 10}}), "412");
}

TEST(VornFormatter, WritesBinaryLittleEndianAndReversesForBigEndian)
{
    EXPECT_EQ(binary("int16", 258), bytes({0x02, 0x01}));
    EXPECT_EQ(binary("int16", 258, {{"order", "big"}}), bytes({0x01, 0x02}));
    EXPECT_EQ(binary("uint32", 0x01020304, {{"order", "network"}}), bytes({1, 2, 3, 4}));
    EXPECT_EQ(binary("uint64", QVariant::fromValue<qulonglong>(0x0102030405060708ULL), {{"order", "big"}}),
              bytes({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(binary("int64", QVariant::fromValue<qlonglong>(-2)),
              bytes({0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    // 1.5f is 0x3FC00000.
    EXPECT_EQ(binary("float32", 1.5), bytes({0x00, 0x00, 0xC0, 0x3F}));
    EXPECT_EQ(binary("float32", 1.5, {{"order", "big"}}), bytes({0x3F, 0xC0, 0x00, 0x00}));
}

TEST(VornFormatter, WritesIntegersInTheRequestedBaseWithLowerCaseDigits)
{
    EXPECT_EQ(text("uint32", 255, {{"base", 16}}), "ff");
    EXPECT_EQ(text("uint8", 5, {{"base", 2}}), "101");
    EXPECT_EQ(text("int16", -255, {{"base", 16}}), "-ff");
    EXPECT_EQ(text("uint64", QVariant::fromValue<qulonglong>(~0ULL), {{"base", 16}}), "ffffffffffffffff");
}

TEST(VornFormatter, WritesFloatsWithNotationPrecisionAndSeparator)
{
    EXPECT_EQ(text("float32", 1.5, {{"precision", 2}, {"decimalseparator", ","}}), "1,50");
    EXPECT_EQ(text("float32", 1234.5, {{"precision", 2}, {"displayformat", "scientific"}}), "1.23e+03");
    // Text keeps double precision: 0.1 in single precision would print 0.100000001.
    EXPECT_EQ(text("float32", 0.1, {{"precision", 9}}), "0.100000000");
}

TEST(VornFormatter, NumericFillPutsTheSignFirstAndZerosAfterIt)
{
    QVariantMap const fill{{"numericfill", true}, {"width", 7}, {"precision", 1}, {"fill", "*"}};
    EXPECT_EQ(text("float32", 1.5, fill), "+0001.5");
    EXPECT_EQ(text("float32", -1.5, fill), "-0001.5");
    EXPECT_EQ(text("uint8", 7, {{"numericfill", true}, {"width", 4}}), "0007");
    EXPECT_EQ(text("int32", 12345678, {{"numericfill", true}, {"width", 4}}), "+12345678");
    // Left alignment does not apply with numeric fill, and strings ignore numeric fill.
    EXPECT_EQ(text("int8", 5, {{"numericfill", true}, {"width", 3}, {"alignment", "left"}}), "+05");
    EXPECT_EQ(text("string", "ab", {{"numericfill", true}, {"width", 4}}), "  ab");
}

TEST(VornFormatter, PadsByAlignmentAndNeverCuts)
{
    EXPECT_EQ(text("int32", 42, {{"width", 5}, {"fill", "*"}}), "***42");
    EXPECT_EQ(text("int32", 42, {{"width", 5}, {"fill", "*"}, {"alignment", "left"}}), "42***");
    EXPECT_EQ(text("string", "toolong", {{"width", 3}}), "toolong");
    // An invalid value is still written, padded to the width.
    EXPECT_EQ(text("uint16", QVariant(), {{"width", 3}}), "  0");
    EXPECT_EQ(text("string", QVariant(), {{"width", 2}}), "  ");
}

TEST(VornFormatter, DecodesHexEscapesInStringsOnlyWhenTwoHexDigitsFollow)
{
    EXPECT_EQ(text("string", "A\\x41B"), "AAB");
    EXPECT_EQ(text("string", "\\x0d\\x0A"), "\r\n");
    EXPECT_EQ(text("string", "end\\x4"), "end\\x4");
    EXPECT_EQ(text("string", "\\xzz\\x"), "\\xzz\\x");
    // A backslash made by an escape does not start a new one.
    EXPECT_EQ(text("string", "\\x5cx41"), "\\x41");
    EXPECT_EQ(VornFormatter::formatValue("a\\x00b", {{"type", "string"}}), QByteArray("a\0b", 3));
    // Strings are text whatever the encoding says, and UTF-8.
    EXPECT_EQ(binary("string", QString::fromUtf8("\xC3\xA4")), QByteArray("\xC3\xA4"));
}

TEST(VornFormatter, KeepsEvery64BitDigitUnscaledAndUsesSinglePrecisionWhenScaled)
{
    qlonglong const big = (1LL << 53) + 1;
    EXPECT_EQ(text("int64", QVariant::fromValue(big)), "9007199254740993");
    // Independently: 2 * (2^53 + 1) in single precision is 2^54 exactly.
    EXPECT_EQ(text("int64", QVariant::fromValue(big), {{"scale", 2}}), "18014398509481984");
    EXPECT_EQ(text("uint64", "18446744073709551615"), "18446744073709551615");
    EXPECT_EQ(text("int64", "not a number"), "0");
    EXPECT_EQ(text("int64", 1e30), "9223372036854775807");
}

TEST(VornFormatter, WritesNothingForAnElementWithoutAValueAndAnUnknownTypeFallsBackToText)
{
    MessageCapture messages;
    // An unknown type name leaves the type at string (reported by the settings), so the value is text.
    EXPECT_EQ(VornFormatter::formatValue(12, {{"type", "int128"}, {"dataencoding", "binary"}}),
              QByteArray("12"));
    EXPECT_EQ(messages.ofLevel("critical"),
              QStringList({"Unexpect value of 'type' QVariant(QString, \"int128\")"}));
}
