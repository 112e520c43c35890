// The result model: a parse never leaves stale content, keys are exact top-level keys without path
// syntax, and nested lookups hit only non-empty objects.
#include <gtest/gtest.h>

#include "results/ResultModel.h"

static ResultModel parsed(QByteArray text)
{
    ResultModel model;
    EXPECT_TRUE(model.parse(text)) << text.constData();
    return model;
}

TEST(ResultModel, ParsingReplacesTheContentEvenWhenTheTextIsMalformedOrNoObject)
{
    ResultModel model = parsed(R"({"old": 1})");
    QByteArray broken("{"), array("[1,2]");
    EXPECT_FALSE(model.parse(broken));
    EXPECT_TRUE(model.getKeys().isEmpty());
    model.insert("old", 1);
    EXPECT_TRUE(model.parse(array));
    EXPECT_TRUE(model.getKeys().isEmpty());
}

TEST(ResultModel, LooksUpExactTopLevelKeysAndOnlyNonEmptyNestedObjects)
{
    ResultModel model =
        parsed(R"({"a": {"b": true}, "a.b": 2, "empty": {}, "list": [{"b": 1}], "text": "t"})");
    EXPECT_FALSE(parsed(R"({"a": {"b": 1}})").get("a.b").isValid());
    QVariant value(42);
    EXPECT_FALSE(model.get("A", value));
    EXPECT_EQ(value.toInt(), 42);
    EXPECT_TRUE(model.get("a.b", value));
    EXPECT_EQ(value.toInt(), 2);

    ResultModel nested = parsed(R"({"kept": 1})");
    for (char const* key : {"empty", "list", "text", "absent"})
        EXPECT_FALSE(model.get(key, nested)) << key;
    EXPECT_EQ(nested.getKeys(), QList<QString>{"kept"});
    EXPECT_TRUE(model.get("a", nested));
    EXPECT_EQ(nested.getKeys(), QList<QString>{"b"});
}

TEST(ResultModel, SearchesRecursivelyOnlyInTheFirstNonEmptyObject)
{
    QVariant out("untouched");
    EXPECT_FALSE(parsed(R"({"a": {"y": 1}, "b": {"x": 2}})").getRecursive("x", out));
    EXPECT_FALSE(parsed(R"({"a": [{"x": 1}]})").getRecursive("x", out));
    EXPECT_EQ(out.toString(), "untouched");
    EXPECT_TRUE(parsed(R"({"a": {}, "b": {"x": 2}})").getRecursive("x", out));
    EXPECT_EQ(out.toInt(), 2);
    EXPECT_TRUE(parsed(R"({"a": 5, "b": {"c": {"d": {"x": 3}}}})").getRecursive("x", out));
    EXPECT_EQ(out.toInt(), 3);
}
