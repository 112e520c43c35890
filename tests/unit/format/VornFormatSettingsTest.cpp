// The format settings: their defaults, and the established messages for what a description gets wrong.
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

#include <QVariantMap>

#include "MessageCapture.h"
#include "format/VornFormatSettings.h"

using orv::test::MessageCapture;

namespace {

// Every field as text, so that two settings compare in one line.
std::string fieldsOf(QVariantMap const& options)
{
    VornFormatSettings s;
    s.loadSettingsFromVariants(options);
    std::ostringstream o;
    o << s.type << s.dataEncoding << " " << s.scale << " " << s.offset << " " << s.byteOrder << " " << s.width
      << " '" << s.fill << "' " << s.precision << s.displayFormat << " " << s.alignment << " '"
      << s.decimalSeparator << "' " << s.base << " " << s.numericFill;
    return o.str();
}

} // namespace

TEST(VornFormatSettings, AnEmptyMapKeepsTheDefaultsAndWarnsOnlyAboutTheMissingTypeAndEncoding)
{
    MessageCapture messages;
    // String, ascii, scale 1, offset 0, little endian, width 0, blank, 6 fixed, right, point, 10, no fill.
    EXPECT_EQ(fieldsOf({}), "00 1 0 0 0 ' ' 6f 1 '.' 10 0");
    EXPECT_EQ(messages.all(), QStringList({"warning: Missing 'dataencoding' is missing",
                                           "warning: Missing 'type' is missing"}));
}

TEST(VornFormatSettings, ReportsABadValueOrAnUnknownKeyWithTheEstablishedTextAndOtherwiseIgnoresIt)
{
    std::tuple<char const*, QVariant, char const*> const cases[] = {
        {"dataencoding", "hex", "Unexpect value of 'dataencoding' QVariant(QString, \"hex\")"},
        {"type", "INT8", "Unexpect value of 'type' QVariant(QString, \"INT8\")"},
        {"order", "middle", "Unexpect value of 'alignment' QVariant(QString, \"middle\")"},
        {"fill", "", "Unexpect empty value of 'fill' QVariant(QString, \"\")"},
        {"displayformat", "general", "Unexpect value of 'displayformat' QVariant(QString, \"general\")"},
        {"alignment", "centre", "Unexpect value of 'alignment' QVariant(QString, \"centre\")"},
        {"decimalseparator", "", "Unexpect empty value of 'fill' QVariant(QString, \"\")"},
        {"base", 1, "Unexpect value of 'base' QVariant(int, 1)"},
        {"base", 17, "Unexpect value of 'base' QVariant(int, 17)"},
        {"comment", "x", "WARNING: The VORN-Formatter-Settings contain unused elements: QSet(\"comment\")"},
    };
    QVariantMap const valid{{"type", "int16"}, {"dataencoding", "binary"}};
    MessageCapture messages;
    for (auto const& [key, value, message] : cases) {
        QVariantMap bad = valid, absent = valid;
        bad.insert(key, value);
        absent.remove(key);
        std::string const expected = fieldsOf(absent);
        messages.clear();
        EXPECT_EQ(fieldsOf(bad), expected) << key;
        EXPECT_EQ(messages.all(), QStringList({QString("critical: ") + message})) << key;
    }
}

TEST(VornFormatSettings, HoldsWidthAndPrecisionWithinTheSchemasBoundsAndSaysSo)
{
    // width and precision given, and as held: each one held otherwise is said to be so
    std::tuple<int, int, int, int> const cases[] = {
        {0, 0, 0, 0}, {65535, 65535, 99, 99}, {65536, 65535, 100, 99}, {-1, 0, -2147483647, 0}};
    MessageCapture messages;
    for (auto const& [width, heldWidth, precision, heldPrecision] : cases) {
        messages.clear();
        EXPECT_EQ(
            fieldsOf(
                {{"type", "float32"}, {"dataencoding", "ascii"}, {"width", width}, {"precision", precision}}),
            "70 1 0 0 " + std::to_string(heldWidth) + " ' ' " + std::to_string(heldPrecision) +
                "f 1 '.' 10 0")
            << width;
        QStringList expected;
        for (auto const& [key, given, held] :
             {std::tuple("width", width, heldWidth), {"precision", precision, heldPrecision}})
            if (given != held)
                expected << QString("critical: Unexpect value of '%1' QVariant(int, %2), using %3")
                                .arg(key, QString::number(given), QString::number(held));
        EXPECT_EQ(messages.all(), expected) << width;
    }
}
