// The plug-in's entry points and dispatch through the built shared library, loaded the way the
// host loads it. No bus and no frames are provided: the plug-in must load and dispatch without them.
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PluginChild.h"
#include "RedisServer.h"
#include "ScopedEnv.h"
#include "TempDir.h"

using orv::test::ChildResult;
using orv::test::LoadedPlugin;
using orv::test::RedisEnvironment;
using orv::test::ScopedEnv;
using orv::test::TempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class PluginCore : public ::testing::Test
{
protected:
    PluginCore()
        : m_frames("kv-frames"), m_noBus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_frames.file("no-bus")),
          m_frameDir("ORV_FRAME_DIR", m_frames.path())
    {}

    RedisEnvironment& redis() { return m_redis; }

    // The messages of entries with the given category, read with a plain search.
    std::vector<std::string> messages(std::string const& category)
    {
        std::vector<std::string> found;
        for (auto const& e : m_redis.cache().lrange("LOG:ENTRIES")) {
            if (e.find("\"C\":\"" + category + "\"") == std::string::npos)
                continue;
            size_t const begin = e.find("\"M\":\"") + 5;
            found.push_back(e.substr(begin, e.rfind("\"}") - begin));
        }
        return found;
    }

private:
    TempDir m_frames;
    ScopedEnv m_noBus;
    ScopedEnv m_frameDir;
    RedisEnvironment m_redis;
};

TEST_F(PluginCore, InitReturnsTheSameHandleEveryTimeAndLogsEachCall)
{
    // Debug entries are off by default; the stored configuration for every source turns them on.
    redis().permanent().hset("LOG:PERM:CFG", "all", "{\"source\":\"all\",\"mask\":255}");

    ChildResult const child = orv::test::runWithPlugin([](LoadedPlugin& plugin) {
        void* first = plugin.init();
        void* second = plugin.init();
        plugin.send(first != nullptr && first == second ? "same" : "different");
        return 0;
    });

    ASSERT_TRUE(child.exited) << child.errors;
    EXPECT_EQ(child.output, "same");
    std::vector<std::string> inits;
    for (auto const& m : messages("DEBUG"))
        if (m.find("VORN_init") != std::string::npos)
            inits.push_back(m);
    EXPECT_THAT(inits, ElementsAre("void* VORN_init()() ", "void* VORN_init()() "));
}

TEST_F(PluginCore, UnsupportedIdsGetNoReplyAndAnErrorEntryNamingTheId)
{
    ChildResult const child = orv::test::runWithPlugin([](LoadedPlugin& plugin) {
        void* handle = plugin.init();
        for (int id : {3, 18, 21, 23, -1, 0, 28}) {
            DataBlock* reply = plugin.request(handle, id, nullptr);
            plugin.send(reply == nullptr ? "n" : "r");
            LoadedPlugin::freeReply(reply);
        }
        return 0;
    });

    ASSERT_TRUE(child.exited) << child.errors;
    EXPECT_EQ(child.output, "nnnnnnn");
    EXPECT_THAT(messages("ERROR"),
                ::testing::IsSupersetOf(
                    {"[VORN] unsupported command given: 3", "[VORN] unsupported command given: 18",
                     "[VORN] unsupported command given: 21", "[VORN] unsupported command given: 23",
                     "[VORN] unsupported command given: -1", "[VORN] unsupported command given: 0",
                     "[VORN] unsupported command given: 28"}));
}

TEST_F(PluginCore, ANullHandleOrRequestGetsNoReplyAndLeavesTheRequestAlone)
{
    ChildResult const child = orv::test::runWithPlugin([](LoadedPlugin& plugin) {
        void* handle = plugin.init();
        DataBlock request;
        memset(&request, 0x5A, sizeof request);
        request.command = 3;
        DataBlock const before = request;
        bool const nullHandle = plugin.handleCall(nullptr, &request) == nullptr;
        bool const nullRequest = plugin.handleCall(handle, nullptr) == nullptr;
        bool const untouched = memcmp(&before, &request, sizeof request) == 0;
        plugin.send(nullHandle && nullRequest && untouched ? "ok" : "wrong");
        return 0;
    });

    ASSERT_TRUE(child.exited) << child.errors;
    EXPECT_EQ(child.output, "ok");
    for (auto const& m : messages("ERROR"))
        EXPECT_THAT(m, ::testing::Not(HasSubstr("unsupported command")));
}

TEST_F(PluginCore, LoadingWithoutItsRedisEndsTheHostWithTheLoggersError)
{
    TempDir empty("kv-none");
    ScopedEnv nowhere("ORV_REDIS_CACHE_SOCKET", empty.file("nothing.sock"));

    ChildResult const child = orv::test::runWithPlugin([](LoadedPlugin& plugin) {
        plugin.send("loaded");
        return 0;
    });

    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_THAT(child.errors, HasSubstr("std::runtime_error"));
    EXPECT_THAT(child.errors, HasSubstr("No such file or directory"));
}

} // namespace
