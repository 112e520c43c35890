#include <gtest/gtest.h>

#include <QMap>

#include "RedisServer.h"
#include "ScopedEnv.h"
#include "god/God.h"

namespace {

class GetAllTest : public ::testing::Test
{
protected:
    orv::test::RedisEnvironment m_redis;
};

TEST_F(GetAllTest, ReadsAHashIntoParallelListsOfFieldsAndValues)
{
    m_redis.cache().command({"HSET", "result_12", "FrameDuration", "2500", "ModelResult", "{\"a\": 1}",
                             "Temperature\xc3\xa4", "41.27"});
    QString const key("result_12");
    QStringList fields{"stale"};
    QStringList values;
    ASSERT_EQ(god::getall(&key, &fields, &values), 0);
    ASSERT_EQ(fields.size(), 4);
    ASSERT_EQ(values.size(), 3);
    EXPECT_EQ(fields[0], "stale");
    fields.removeFirst();
    QMap<QString, QString> read;
    for (int i = 0; i < fields.size(); ++i)
        read[fields[i]] = values[i];
    EXPECT_EQ(read.value("FrameDuration"), "2500");
    EXPECT_EQ(read.value("ModelResult"), "{\"a\": 1}");
    EXPECT_EQ(read.value(QString::fromUtf8("Temperature\xc3\xa4")), "41.27");
}

TEST_F(GetAllTest, TellsAMissingHashFromAWrongTypeAndAnUnreachableCache)
{
    QString const missing("result_404");
    QStringList fields, values;
    EXPECT_EQ(god::getall(&missing, &fields, &values), 0);
    EXPECT_TRUE(fields.isEmpty() && values.isEmpty());

    m_redis.cache().command({"SET", "plain", "text"});
    QString const plain("plain");
    EXPECT_EQ(god::getall(&plain, &fields, &values), god::WrongReply);
    EXPECT_EQ(god::getall(nullptr, &fields, &values), god::BadArgument);

    m_redis.cache().stop();
    EXPECT_NE(god::getall(&missing, &fields, &values), 0);
    {
        orv::test::ScopedEnv elsewhere("ORV_REDIS_CACHE_SOCKET", "/nonexistent/redis.sock");
        EXPECT_EQ(god::getall(&missing, &fields, &values), god::NotConnected);
    }
}

TEST_F(GetAllTest, FollowsTheCacheSocketWhenItChanges)
{
    orv::test::RedisServer other;
    other.hset("result_1", "from", "other");
    m_redis.cache().hset("result_1", "from", "cache");
    QString const key("result_1");
    QStringList fields, values;
    ASSERT_EQ(god::getall(&key, &fields, &values), 0);
    {
        orv::test::ScopedEnv elsewhere("ORV_REDIS_CACHE_SOCKET", other.socketPath());
        ASSERT_EQ(god::getall(&key, &fields, &values), 0);
    }
    EXPECT_EQ(values, (QStringList{"cache", "other"}));
}

} // namespace
