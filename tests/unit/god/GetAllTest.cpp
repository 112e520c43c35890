#include <csignal>

#include <gtest/gtest.h>

#include "RedisServer.h"
#include "god/God.h"

namespace {

class GetAllTest : public ::testing::Test
{
protected:
    int getall(QString const& key)
    {
        fields = values = QStringList();
        return god::getall(&key, &fields, &values);
    }

    orv::test::RedisEnvironment m_redis;
    QStringList fields, values;
};

TEST_F(GetAllTest, ReadsAHashIntoParallelListsAndTellsAMissingHashFromAWrongType)
{
    m_redis.cache().command({"HSET", "result_12", "FrameDuration", "2500", "ModelResult", "{\"a\": 1}",
                             "Temperature\xc3\xa4", "41.27"});
    ASSERT_EQ(getall("result_12"), 0);
    // A small hash answers in the order its fields were set.
    EXPECT_EQ(fields,
              (QStringList{"FrameDuration", "ModelResult", QString::fromUtf8("Temperature\xc3\xa4")}));
    EXPECT_EQ(values, (QStringList{"2500", "{\"a\": 1}", "41.27"}));

    EXPECT_EQ(getall("result_404"), 0);
    m_redis.cache().command({"SET", "plain", "text"});
    EXPECT_EQ(getall("plain"), god::WrongReply);
    EXPECT_EQ(god::getall(nullptr, &fields, &values), god::BadArgument);
}

TEST_F(GetAllTest, ConnectsAgainAfterTheCacheWasGoneWithoutTakingTheHostsOwnBrokenPipe)
{
    signal(SIGPIPE, SIG_DFL); // as in a host that never thought of it: a broken pipe would end it
    sigset_t pipe, old, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    for (bool const hostsOwn : {false, true}) {
        ASSERT_EQ(getall("result_1"), 0);
        m_redis.cache().stop();
        // The host's own broken pipe, pending while it blocks the signal, stays pending; the one of the
        // write to the vanished cache does not, and the host's signal mask is as it was.
        if (hostsOwn) {
            pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
            raise(SIGPIPE);
        }
        EXPECT_NE(getall("result_1"), 0);
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), hostsOwn ? 1 : 0);
        pthread_sigmask(SIG_SETMASK, nullptr, &old);
        EXPECT_EQ(sigismember(&old, SIGPIPE), hostsOwn ? 1 : 0);
        timespec const none{0, 0};
        sigtimedwait(&pipe, nullptr, &none);
        pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
        EXPECT_EQ(getall("result_1"), god::NotConnected);
        m_redis.cache().start();
    }
    m_redis.cache().hset("result_1", "from", "restarted");
    ASSERT_EQ(getall("result_1"), 0);
    EXPECT_EQ(values, QStringList{"restarted"});
}

} // namespace
