// Every JSON text of a request or a result reaches Qt through this parser: it must answer exactly as
// Qt does, without the memory Qt 5.15 loses on a repeated key.
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonParseError>

#include "ResourceUsage.h"
#include "core/JsonParser.h"

// Escapes are left out of the cut text: a text that ends inside one gets the error of the text up to
// the escape (see the repeated keys below), where Qt names the escape.
TEST(JsonParser, AnswersAsQtDoesForEveryTextWithoutARepeatedKeyWhereverItIsCut)
{
    QByteArray const whole = R"({"a":[1,-2.5e3,true,null,"text"],"b":{"c":{},"d":[[]]},"e":false})";
    std::vector<QByteArray> texts;
    for (int length = 0; length <= whole.size(); ++length)
        texts.push_back(whole.left(length));
    for (int depth : {1023, 1024, 1025}) // Qt's limit of nesting is 1024
        texts.push_back(QByteArray(depth, '[') + QByteArray(depth, ']'));
    for (char const* text : {"[1] x", "{\"a\":01}", "[1e]", "\xff"})
        texts.push_back(text);
    for (QByteArray const& text : texts) {
        SCOPED_TRACE(text.toStdString());
        QJsonParseError ours{}, qts{};
        QJsonDocument const parsed = orv::JsonParser::parse(text, &ours);
        EXPECT_EQ(ours.errorString(), (QJsonDocument::fromJson(text, &qts), qts.errorString()));
        EXPECT_EQ(parsed, QJsonDocument::fromJson(text));
    }
}

TEST(JsonParser, KeepsTheLastOfRepeatedKeysAsQtDoesWithoutLosingMemory)
{
    // The text, and compact JSON or Qt's error text.
    std::pair<char const*, char const*> const cases[] = {
        {R"({"a":{"x":1},"b":[0.1,-7,1e300],"a":{"y":[1,{"z":2,"z":3}]}})",
         R"({"a":{"y":[1,{"z":3}]},"b":[0.1,-7,1e+300]})"},
        {R"({"a":{"x":{"k":1,"k":[2]},"y":2},"b":{"a":3},"b":{"x":4},"a":5})", R"({"a":5,"b":{"x":4}})"},
        {R"({"a":{"x":1},"a":2,"a")", "missing name separator"}, // repeated, then no JSON: never given to Qt
        {R"([{"a":1,"a":[{"b":1,"b":2}]}])", R"([{"a":[{"b":2}]}])"},
        {"{\"a\x04\":1}", "unterminated string"},               // a raw control character only Qt would read
        {"{\"a\":\"\\x\"}", "unterminated string"},             // an escape only Qt would read
        {R"({"a":{"x":1},"x":"\u00e)", "unterminated string"}}; // a key of a closed object is no repeat
    auto parse = [](char const* text) {
        QJsonParseError error{};
        QJsonDocument const document = orv::JsonParser::parse(QByteArray(text), &error);
        return error.error == QJsonParseError::NoError ? document.toJson(QJsonDocument::Compact).toStdString()
                                                       : error.errorString().toStdString();
    };
    for (auto const& [text, expected] : cases)
        EXPECT_EQ(parse(text), expected) << text;

    orv::test::ResourceUsage const before = orv::test::ResourceUsage::now();
    for (int i = 0; i < 100; ++i)
        for (auto const& c : cases)
            parse(c.first);
    EXPECT_LT((orv::test::ResourceUsage::now() - before).heap, 2048);
}

TEST(JsonParser, KeepsANumberWrittenWithAFractionOrAnExponentADoubleWhereQtMakesAnInteger)
{
    // The text, and the types of its leaves in the order QJsonDocument lists them.
    std::pair<char const*, char const*> const cases[] = {
        {R"({"a":1.2345678901234568e+17,"b":2.0,"c":2,"d":1e2,"e":2.5,"f":1e300,"g":"2.0"})",
         "double double qlonglong double double double QString"},
        {R"({"a":[1.5e3,7,{"b":-0.0,"c":[0E0]}]})", "double qlonglong double double"},
        {R"({"a":2.0,"a":3,"b":{"c":1e2},"b":{"d":1},"e":{"f":1e2},"e":{"f":5}})",
         "qlonglong qlonglong qlonglong"},
    };
    std::function<QString(QVariant const&)> leaves = [&](QVariant const& v) {
        bool const map = v.userType() == QMetaType::QVariantMap;
        if (!map && v.userType() != QMetaType::QVariantList)
            return QString(v.typeName()) + ' ';
        QString all;
        for (QVariant const& inner : map ? v.toMap().values() : v.toList())
            all += leaves(inner);
        return all;
    };
    for (auto const& [text, types] : cases)
        EXPECT_EQ(leaves(orv::JsonParser::toVariant(text)).trimmed().toStdString(), types) << text;
    EXPECT_EQ(orv::JsonParser::toVariant(R"({"a":1.2345678901234568e+17})").toMap().value("a").toDouble(),
              1.2345678901234568e+17);
}
