#include <gtest/gtest.h>

#include <QVariantMap>

#include "MessageCapture.h"
#include "format/VornFormatSettings.h"

using orv::test::MessageCapture;

namespace {

VornFormatSettings load(QVariantMap const& options)
{
    VornFormatSettings settings;
    settings.loadSettingsFromVariants(options);
    return settings;
}

QVariantMap withTypeAndEncoding(QVariantMap options)
{
    options.insert("type", "int16");
    options.insert("dataencoding", "binary");
    return options;
}

} // namespace

TEST(VornFormatSettings, AnEmptyMapKeepsEveryDefaultAndWarnsAboutTheTwoMissingKeys)
{
    MessageCapture messages;
    VornFormatSettings const s = load({});

    EXPECT_EQ(s.type, VornFormatSettings::String);
    EXPECT_EQ(s.dataEncoding, VornFormatSettings::Ascii);
    EXPECT_EQ(s.scale, 1.0f);
    EXPECT_EQ(s.offset, 0.0f);
    EXPECT_EQ(s.byteOrder, 0u);
    EXPECT_EQ(s.width, 0);
    EXPECT_EQ(s.fill, ' ');
    EXPECT_EQ(s.precision, 6);
    EXPECT_EQ(s.displayFormat, 'f');
    EXPECT_EQ(s.alignment, VornFormatSettings::Right);
    EXPECT_EQ(s.decimalSeparator, '.');
    EXPECT_EQ(s.base, 10);
    EXPECT_FALSE(s.numericFill);
    EXPECT_EQ(messages.all(), QStringList({"warning: Missing 'dataencoding' is missing",
                                           "warning: Missing 'type' is missing"}));
}

TEST(VornFormatSettings, TakesEveryValidOptionWithoutAMessage)
{
    MessageCapture messages;
    VornFormatSettings const s = load({{"type", "float32"},
                                       {"dataencoding", "binary"},
                                       {"scale", 0.5},
                                       {"offset", -3},
                                       {"order", "big"},
                                       {"width", 9},
                                       {"fill", "0*"},
                                       {"precision", 3},
                                       {"displayformat", "scientific"},
                                       {"alignment", "left"},
                                       {"decimalseparator", ",;"},
                                       {"base", 16},
                                       {"numericfill", true}});

    EXPECT_EQ(s.type, VornFormatSettings::Float32);
    EXPECT_EQ(s.dataEncoding, VornFormatSettings::Binary);
    EXPECT_EQ(s.scale, 0.5f);
    EXPECT_EQ(s.offset, -3.0f);
    EXPECT_EQ(s.byteOrder, 1u);
    EXPECT_EQ(s.width, 9);
    EXPECT_EQ(s.fill, '0');
    EXPECT_EQ(s.precision, 3);
    EXPECT_EQ(s.displayFormat, 'e');
    EXPECT_EQ(s.alignment, VornFormatSettings::Left);
    EXPECT_EQ(s.decimalSeparator, ',');
    EXPECT_EQ(s.base, 16);
    EXPECT_TRUE(s.numericFill);
    EXPECT_TRUE(messages.all().isEmpty()) << messages.all().join('\n').toStdString();
}

TEST(VornFormatSettings, NetworkOrderIsBigEndianAndBusDependingFollowsTheBus)
{
    EXPECT_EQ(load(withTypeAndEncoding({{"order", "network"}})).byteOrder, 1u);
    EXPECT_EQ(load(withTypeAndEncoding({{"order", "little"}})).byteOrder, 0u);

    MessageCapture messages;
    EXPECT_EQ(load(withTypeAndEncoding({{"order", "busdepending"}, {"busEndianness", 1u}})).byteOrder, 1u);
    EXPECT_EQ(messages.all(), QStringList({"debug: busEndianness Using: 1"}));

    messages.clear();
    EXPECT_EQ(load(withTypeAndEncoding({{"order", "busdepending"}})).byteOrder, 0u);
    EXPECT_EQ(messages.all(), QStringList({"warning: busEndianness not found in map"}));
}

TEST(VornFormatSettings, ReportsBadValuesWithTheEstablishedTextsAndKeepsTheDefaults)
{
    MessageCapture messages;
    VornFormatSettings const s = load({{"type", "INT8"},
                                       {"dataencoding", "hex"},
                                       {"order", "middle"},
                                       {"fill", ""},
                                       {"displayformat", "general"},
                                       {"alignment", "centre"},
                                       {"decimalseparator", ""},
                                       {"base", 1}});

    EXPECT_EQ(s.type, VornFormatSettings::String);
    EXPECT_EQ(s.dataEncoding, VornFormatSettings::Ascii);
    EXPECT_EQ(s.byteOrder, 0u);
    EXPECT_EQ(s.fill, ' ');
    EXPECT_EQ(s.displayFormat, 'f');
    EXPECT_EQ(s.alignment, VornFormatSettings::Right);
    EXPECT_EQ(s.decimalSeparator, '.');
    EXPECT_EQ(s.base, 10);
    EXPECT_EQ(messages.ofLevel("critical"),
              QStringList({"Unexpect value of 'dataencoding' QVariant(QString, \"hex\")",
                           "Unexpect value of 'type' QVariant(QString, \"INT8\")",
                           "Unexpect value of 'alignment' QVariant(QString, \"middle\")",
                           "Unexpect empty value of 'fill' QVariant(QString, \"\")",
                           "Unexpect value of 'displayformat' QVariant(QString, \"general\")",
                           "Unexpect value of 'alignment' QVariant(QString, \"centre\")",
                           "Unexpect empty value of 'fill' QVariant(QString, \"\")",
                           "Unexpect value of 'base' QVariant(int, 1)"}));
    EXPECT_EQ(load(withTypeAndEncoding({{"base", 17}})).base, 10);
    EXPECT_EQ(load(withTypeAndEncoding({{"base", 2}})).base, 2);
}

TEST(VornFormatSettings, ListsUnknownKeysOnceButNeverTheBusByteOrder)
{
    MessageCapture messages;
    load(withTypeAndEncoding({{"comment", "x"}, {"busEndianness", 0u}}));
    EXPECT_EQ(messages.all(),
              QStringList({"critical: WARNING: The VORN-Formatter-Settings contain unused elements: "
                           "QSet(\"comment\")"}));
}
