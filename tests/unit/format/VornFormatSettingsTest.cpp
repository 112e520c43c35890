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
    struct Case
    {
        int width, precision;
        char const* fields;   // width and precision as held
        QStringList messages; // the notes, after "critical: Unexpect value of "
    } const cases[] = {
        {0, 0, "0 ' ' 0", {}},
        {65535, 99, "65535 ' ' 99", {}},
        {65536,
         100,
         "65535 ' ' 99",
         {"'width' QVariant(int, 65536), using 65535", "'precision' QVariant(int, 100), using 99"}},
        {-1,
         -2147483647,
         "0 ' ' 0",
         {"'width' QVariant(int, -1), using 0", "'precision' QVariant(int, -2147483647), using 0"}},
    };
    MessageCapture messages;
    for (Case const& c : cases) {
        messages.clear();
        EXPECT_EQ(fieldsOf({{"type", "float32"},
                            {"dataencoding", "ascii"},
                            {"width", c.width},
                            {"precision", c.precision}}),
                  std::string("70 1 0 0 ") + c.fields + "f 1 '.' 10 0")
            << c.width;
        QStringList notes = messages.all();
        EXPECT_EQ(notes.replaceInStrings("critical: Unexpect value of ", ""), c.messages) << c.width;
    }
}
