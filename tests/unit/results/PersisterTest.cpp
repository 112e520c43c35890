#include <gmock/gmock.h>

#include <stdexcept>

#include "ResultTestSupport.h"
#include "results/ResultModel.h"
#include "results/ResultModelRedisPersister.h"

using orv::ResultModelRedisPersister;

namespace {

class PersisterTest : public orv::test::ResultTestBase
{
protected:
    ResultModelRedisPersister make()
    {
        return ResultModelRedisPersister(QString::fromStdString(redis().socketPath()));
    }
};

TEST_F(PersisterTest, StoresModelsAsJsonTextInTheModelResultField)
{
    ResultModelRedisPersister persister(QString::fromStdString(redis().socketPath()));
    ResultModel empty;
    EXPECT_TRUE(persister.put("result_1", empty));
    EXPECT_EQ(redis().hget("result_1", "ModelResult"), std::string("{\n}\n"));

    EXPECT_TRUE(persister.putJson("result 2", QString::fromUtf8("{\"text\": \"with blanks \xc3\xa9\"}")));
    EXPECT_EQ(redis().hget("result 2", "ModelResult"), std::string("{\"text\": \"with blanks \xc3\xa9\"}"));
    ResultModel model;
    ASSERT_TRUE(persister.get("result 2", model));
    EXPECT_EQ(model.get("text").toString(), QString::fromUtf8("with blanks \xc3\xa9"));

    EXPECT_TRUE(persister.rm("result 2"));
    EXPECT_FALSE(redis().hget("result 2", "ModelResult").has_value());

    redis().command({"SET", "plain", "text"});
    EXPECT_FALSE(persister.putJson("plain", "{}"));
}

TEST_F(PersisterTest, AMissingFieldLeavesTheModelAndLogsItsType)
{
    ResultModelRedisPersister persister(QString::fromStdString(redis().socketPath()));
    redis().hset("result_3", "Other", "x");
    ResultModel model;
    model.insert("kept", 1);
    EXPECT_FALSE(persister.get("result_3", model));
    EXPECT_EQ(model.getKeys(), QList<QString>{"kept"});
    EXPECT_THAT(messages(), ::testing::Contains("getJson: Wrong type(4) returned ((null)) for result_3#"));
}

TEST_F(PersisterTest, AMalformedModelEmptiesTheTargetAndIsReported)
{
    ResultModelRedisPersister persister(QString::fromStdString(redis().socketPath()));
    redis().hset("result_4", "ModelResult", "{");
    ResultModel model;
    model.insert("stale", 1);
    EXPECT_FALSE(persister.get("result_4", model));
    EXPECT_TRUE(model.getKeys().isEmpty());
    EXPECT_TRUE(logged("get: model parsing failed ?!"));
}

TEST_F(PersisterTest, RefusesToExistWithoutRedis)
{
    EXPECT_THROW(ResultModelRedisPersister("/nonexistent/redis.sock"), std::runtime_error);
}

} // namespace
