#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QJsonDocument>

#include "results/ResultModel.h"

namespace {

QStringList warnings;

void captureWarnings(QtMsgType type, QMessageLogContext const&, QString const& message)
{
    if (type == QtWarningMsg)
        warnings << message;
}

ResultModel parsed(char const* text)
{
    ResultModel model;
    QByteArray json(text);
    EXPECT_TRUE(model.parse(json)) << text;
    return model;
}

class ResultModelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        warnings.clear();
        m_previous = qInstallMessageHandler(captureWarnings);
    }
    void TearDown() override { qInstallMessageHandler(m_previous); }

private:
    QtMessageHandler m_previous = nullptr;
};

TEST_F(ResultModelTest, ParsingEmptiesTheModelFirstAndWarnsOnlyOnMalformedText)
{
    ResultModel model = parsed("{\"old\": 1}");
    QByteArray broken("{");
    EXPECT_FALSE(model.parse(broken));
    EXPECT_TRUE(model.getKeys().isEmpty());
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].startsWith("parse: An error occurred during parsing: "))
        << warnings[0].toStdString();

    model = parsed("{\"old\": 1}");
    QByteArray array("[1,2]");
    EXPECT_TRUE(model.parse(array));
    EXPECT_TRUE(model.getKeys().isEmpty());
    EXPECT_TRUE(parsed("{}").getKeys().isEmpty());
    EXPECT_EQ(warnings.size(), 1);
}

TEST_F(ResultModelTest, LooksUpExactTopLevelKeysWithoutPathSyntax)
{
    ResultModel model = parsed("{\"a\": {\"b\": 1}, \"a.b\": 2, \"c/d\": \"x\"}");
    EXPECT_FALSE(parsed("{\"a\": {\"b\": 1}}").get("a.b").isValid());
    EXPECT_EQ(model.get("a.b").toInt(), 2);
    EXPECT_EQ(model.get("c/d").toString(), "x");
    EXPECT_FALSE(model.get("A").isValid());

    QVariant out(42);
    EXPECT_FALSE(model.get("missing", out));
    EXPECT_EQ(out.toInt(), 42);
    EXPECT_TRUE(model.get("a.b", out));
    EXPECT_EQ(out.toInt(), 2);
}

TEST_F(ResultModelTest, NestedModelLookupHitsOnlyNonEmptyObjects)
{
    ResultModel model = parsed("{\"empty\": {}, \"list\": [1], \"text\": \"t\", \"obj\": {\"k\": true}}");
    ResultModel out = parsed("{\"kept\": 1}");
    for (char const* key : {"empty", "list", "text", "absent"}) {
        EXPECT_FALSE(model.get(key, out)) << key;
        EXPECT_EQ(out.getKeys(), QList<QString>{"kept"}) << key;
    }
    EXPECT_TRUE(model.get("obj", out));
    EXPECT_EQ(out.getKeys(), QList<QString>{"k"});
    EXPECT_TRUE(out.get("k").toBool());
}

TEST_F(ResultModelTest, RecursiveSearchDescendsIntoTheFirstNonEmptyObjectOnly)
{
    QVariant out;
    EXPECT_TRUE(parsed("{\"a\": {\"b\": 1}}").getRecursive("b", out));
    EXPECT_EQ(out.toInt(), 1);

    out = QVariant("untouched");
    EXPECT_FALSE(parsed("{\"a\": {\"y\": 1}, \"b\": {\"x\": 2}}").getRecursive("x", out));
    EXPECT_FALSE(parsed("{\"a\": [{\"x\": 1}]}").getRecursive("x", out));
    EXPECT_EQ(out.toString(), "untouched");

    EXPECT_TRUE(parsed("{\"a\": {}, \"b\": {\"x\": 2}}").getRecursive("x", out));
    EXPECT_EQ(out.toInt(), 2);
    EXPECT_TRUE(parsed("{\"a\": 5, \"b\": {\"c\": {\"d\": {\"x\": 3}}}}").getRecursive("x", out));
    EXPECT_EQ(out.toInt(), 3);
}

TEST_F(ResultModelTest, InsertOverwritesAndKeysComeInCodeUnitOrder)
{
    ResultModel model;
    model.insert("a", 1);
    model.insert("B", 2);
    model.insert("a", 3);
    EXPECT_EQ(model.getKeys(), (QList<QString>{"B", "a"}));
    EXPECT_EQ(model.get("a").toInt(), 3);

    model.clear();
    EXPECT_TRUE(model.getKeys().isEmpty());
}

TEST_F(ResultModelTest, SerializesToIndentedJsonThatParsesBack)
{
    ResultModel empty;
    EXPECT_EQ(empty.serialize(), QByteArray("{\n}\n"));

    ResultModel model =
        parsed("{\"n\": 1.5, \"s\": \"t\", \"l\": [1, {\"x\": null}], \"o\": {\"b\": false}}");
    QByteArray text = model.serialize();
    EXPECT_TRUE(text.contains('\n'));
    ResultModel back;
    ASSERT_TRUE(back.parse(text));
    EXPECT_EQ(QJsonDocument::fromVariant(back).toJson(QJsonDocument::Compact),
              QByteArray("{\"l\":[1,{\"x\":null}],\"n\":1.5,\"o\":{\"b\":false},\"s\":\"t\"}"));
}

} // namespace
