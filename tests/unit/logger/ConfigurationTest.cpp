#include <atomic>
#include <string>
#include <thread>
#include <unistd.h>

#include "LoggerTestSupport.h"
#include "ResourceUsage.h"

using namespace orv::test;
using namespace ::testing;

namespace {

class Configuration : public RedisLoggerTest
{
protected:
    void publish(std::string const& text) { redis().command({"PUBLISH", "LOGGER:CFG", text}); }
    long long listeners() { return redis().command({"PUBSUB", "NUMSUB", "LOGGER:CFG"}).elements[1].integer; }
    // Applied texts are announced as INFO entries; the channel keeps order, so once a later text is
    // announced, every earlier one has been handled.
    std::vector<std::string> announcementsAfter(size_t n)
    {
        waitUntil([&] { return redis().logMessages("INFO").size() >= n; });
        return redis().logMessages("INFO");
    }
};

TEST_F(Configuration, AppliesTextsForItsSourceOrAllThroughOneListenerThatEndsWithTheLastLogger)
{
    auto kscom = makeLogger("KSCOM", true);
    auto persister = makeLogger("ResultModelRedisPersister", true);
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    EXPECT_EQ(listeners(), 1);
    publish(R"({"source":"all","mask":255})");
    EXPECT_THAT(announcementsAfter(2), Each(StartsWith("Applying new log configuration: mask(0xff), SigSegV "
                                                       "Regexp(), max logs(10000), instance(0x")));
    kscom->log(RedisLogger::DEBUG, "now visible");

    // Ignored: another process, no source, a source that is not text, no JSON. A member of the wrong
    // type, or one unknown, is skipped while the rest of its text applies.
    publish(R"({"source":"KSCOM","pid":)" + std::to_string(getpid() + 1) + R"(,"max":50})");
    publish(R"({"mask":1})");
    publish(R"({"source":5,"mask":1})");
    publish("not json");
    publish(R"({"source":"KSCOM","mask":"1","max":20,"level":3})");
    // The announcement is written even when the very change it announces masks INFO out.
    publish(R"({"source":"KSCOM","pid":)" + std::to_string(getpid()) + R"(,"mask":240,"segvregex":"q{4}"})");
    EXPECT_THAT(announcementsAfter(4),
                ElementsAre(_, _, HasSubstr("mask(0xff), SigSegV Regexp(), max logs(20)"),
                            HasSubstr("mask(0xf0), SigSegV Regexp(q{4}), max logs(20)")));
    kscom->log(RedisLogger::DEBUG, "hidden again");
    persister->log(RedisLogger::DEBUG, "still visible");
    EXPECT_THAT(redis().logMessages("DEBUG"), ElementsAre("now visible", "still visible"));

    kscom.reset();
    persister.reset();
    EXPECT_TRUE(waitUntil([&] { return listeners() == 0; }));
    // A later logger starts the listener again; a text that a logger pushes reaches every listener.
    auto again = makeLogger("KSCOM", true);
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    std::string const text = R"({"source":"KSCOM","max":77}trailing bytes not sent)";
    EXPECT_TRUE(again->redisPushConfig(text.c_str(), 27));
    EXPECT_THAT(announcementsAfter(5), Contains(HasSubstr("max logs(77)")));
}

TEST_F(Configuration, ReachesALoggerThatAnotherThreadWritesWithAndNeverHalfAppliesAText)
{
    auto kscom = makeLogger("KSCOM", true);
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 0; !stop; ++i)
            kscom->log(i % 2 ? RedisLogger::DEBUG : RedisLogger::WARN, "tick %d", i);
    });
    publish(R"({"source":"all","mask":255,"max":100000})");
    bool const debugSeen = waitUntil([&] { return !redis().logMessages("DEBUG").empty(); });
    stop = true;
    writer.join();
    EXPECT_TRUE(debugSeen);
    EXPECT_THAT(redis().logMessages("INFO"), ElementsAre(HasSubstr("mask(0xff)")));
}

TEST_F(Configuration, RefusesTextsThatWouldBreakTheLoggerAndKeepsWorkingWithTheSettingsItHad)
{
    auto kscom = makeLogger("KSCOM", true);
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    publish(R"({"source":"KSCOM","segvregex":"(a+)+b","max":6})");
    for (char const* text :
         {R"({"source":"all","segvregex":"(["})", R"({"source":"all","max":0,"mask":255})",
          R"({"source":"all","segvregex":"a{1234567}"})", R"({"source":"all","max":-1e400})"})
        publish(text);
    publish(R"({"source":"KSCOM","mask":240})");
    EXPECT_THAT(announcementsAfter(2),
                ElementsAre(HasSubstr("Regexp((a+)+b), max logs(6)"),
                            HasSubstr("mask(0xf0), SigSegV Regexp((a+)+b), max logs(6)")));
    EXPECT_THAT(redis().logMessages("ERROR"),
                ElementsAre(HasSubstr("SigSegV Regexp(([) does not compile"),
                            HasSubstr("max logs(0) is below 1"),
                            HasSubstr("Regexp(a{1234567}) does not compile"), HasSubstr("is below 1")));
    // The kept expression matches in time proportional to the message, never by backtracking.
    EXPECT_EQ(kscom->log(RedisLogger::ERROR, "%s", std::string(499, 'a').c_str()), 0);
    EXPECT_EQ(redis().llen("LOG:ENTRIES"), 6);

    // Set directly, the same checks: a long number is refused only as a count or back-reference.
    redis().command({"DEL", "LOG:ENTRIES"});
    kscom->setConfig(0xF0, 0, "x\\d123456{2}");
    kscom->setConfig(0xF0, 6, "(a)\\123456");
    EXPECT_THAT(redis().logMessages("ERROR"),
                ElementsAre("Log configuration not applied: max logs(0) is below 1",
                            "Log configuration not applied: SigSegV Regexp((a)\\123456) does not compile: a "
                            "repeat count or back-reference of more than five digits"));
    kscom->setConfig(0xF0, 1, ""); // the least maximum there is
    EXPECT_TRUE(kscom->log(RedisLogger::ERROR, "one") == 0 && redis().llen("LOG:ENTRIES") == 1);
}

TEST_F(Configuration, ReadsTextAfterTextWithoutKeepingAnyOfThem)
{
    auto kscom = makeLogger("KSCOM", true);
    ASSERT_TRUE(redis().waitForSubscribers("LOGGER:CFG"));
    auto texts = [&](int from, int to) { // each announced in an entry, counted without reading it
        for (int i = from; i < to; ++i)
            publish(R"({"source":"KSCOM","max":)" + std::to_string(100 + i) + "}");
        EXPECT_TRUE(waitUntil([&] { return redis().llen("LOG:ENTRIES") == to; }));
    };
    texts(0, 100); // the listener's buffers grow to hold a burst this large
    ResourceUsage const before = ResourceUsage::now();
    texts(100, 200);
    EXPECT_LT((ResourceUsage::now() - before).heap, 12000); // a text kept is some 250 bytes
}

TEST_F(Configuration, StoresConfigurationsThatLaterLoggersStartWithSilently)
{
    auto tool = makeLogger("kslog");
    std::string all = "all", kscomName = "KSCOM";
    EXPECT_FALSE(tool->saveConfig(all, 0xFFFFFFFF, 0, ""));
    EXPECT_THAT(redis().logMessages("WARN"), ElementsAre("saveConfig: No log configuration to save ?"));
    // A successful store still reports false: the server answers with a number.
    EXPECT_FALSE(tool->saveConfig(all, 0xF8, 0, ""));
    EXPECT_FALSE(tool->saveConfig(kscomName, 0xFF, 3, "never-in-a-message"));
    EXPECT_EQ(m_env.permanent().hget("LOG:PERM:CFG", "all"), "{\n\"source\" : \"all\"\n,\"mask\" : 248\n}\n");
    EXPECT_EQ(m_env.permanent().hget("LOG:PERM:CFG", "KSCOM"),
              "{\n\"source\" : \"KSCOM\"\n,\"max\" : 3\n,\"mask\" : "
              "255\n,\"segvregex\" : \"never-in-a-message\"\n}\n");

    auto kscom = makeLogger("KSCOM", true); // "all", then its own record on top
    auto other = makeLogger("Other", true); // "all" only
    other->log(RedisLogger::INFO, "info from other");
    other->log(RedisLogger::DEBUG, "debug from other");
    // The warning, then only what "all" lets through: loading is silent.
    EXPECT_THAT(redis().logMessages(), ElementsAre(_, "info from other"));
    for (int i = 0; i < 5; ++i)
        kscom->log(RedisLogger::DEBUG, "debug %d", i);
    EXPECT_THAT(redis().logMessages(), ElementsAre("debug 2", "debug 3", "debug 4"));
}

} // namespace
