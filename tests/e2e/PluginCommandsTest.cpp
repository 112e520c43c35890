// Every command through the built shared library, loaded as the host loads it: each id answers with
// its reply code, status and record layout on the simulated camera, and with its failure status
// when the camera's services are missing. The rules behind each answer are unit-tested.
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "HostSession.h"
#include "Process.h"
#include "RedisServer.h"
#include "ResourceUsage.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "resultsync/FrameClient.h"
#include "resultsync/FramePublisher.h"

using namespace orv;
using namespace orv::test;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;

namespace {

class PluginCommands : public ::testing::Test
{
protected:
    std::vector<std::string> errors() { return m_redis.cache().logMessages("ERROR"); }

    TempDir m_dir{"kv-e2e"};
    ScopedEnv m_schema{"ORV_VORN_SCHEMA_DIR", KV_SOURCE_DIR "/schema"};
    RedisEnvironment m_redis;
};

// The first round's answers are checked; a hundred more must leave the host's heap, descriptors and
// mappings as they were (a reply, text or buffer left behind per round would be kilobytes).
TEST_F(PluginCommands, EveryIdAnswersWithItsRecordOnTheSimulatedCameraRoundAfterRoundWithoutTheHostGrowing)
{
    DBusDaemon bus;
    CameraSim camera;
    std::string const simple = R"({"format":{"elements":[{"type":"string","value":"<"},
        {"type":"uint8","id":"activeapp_id"},{"type":"string","value":">"}]}})";
    std::string const rich = R"({"format":{"elements":[{"type":"string","value":"KV"},
        {"type":"uint32","id":"evaltime","format":{"dataencoding":"binary","order":"busdepending"}},
        {"type":"float32","id":"statistics_frame_duration_mean"},{"type":"blob","id":"json_model"},
        {"type":"records","id":"models","elements":[{"type":"uint8","id":"allROIsGood"},
            {"type":"records","id":"rois","elements":[{"type":"int16","id":"id"}]}]}]}})";

    ChildResult const child = runWithPlugin([&](LoadedPlugin& plugin) {
        auto round = [&](bool first) {
            Host host(plugin);
            host.ask("trigger", 9, nullptr);
            std::unique_ptr<resultsync::Frame> const next = resultsync::FrameClient(false).waitForFrame(2000);
            std::string const id = next ? next->getId() : "none";
            FormatResultsRequest request{}, richRequest{};
            strncpy(request.resultId, id.c_str(), sizeof request.resultId - 1);
            richRequest = request;
            request.json = simple.data(), request.jsonLength = uint32_t(simple.size());
            richRequest.json = rich.data(), richRequest.jsonLength = uint32_t(rich.size());
            int32_t const io1[] = {1}, setIo1[] = {1, 1}, application2[] = {2};
            auto const results = statistic("number_of_results", 1),
                       rejected = statistic("number_of_results", 5);
            auto const image = query("distance_image", id);
            host.ask("vendor", 20, "vendor", infoValue)
                .ask("mac", 20, "mac_address", infoValue)
                .ask("stats", 22, &results, statisticValue)
                .ask("stats5", 22, &rejected)
                .ask("apps", 14, nullptr, applications)
                .ask("switch", 17, application2)
                .ask("get", 12, io1, ioEcho)
                .ask("set", 11, setIo1)
                .ask("acquire", 4, id.c_str());
            for (char const* key :
                 {"distance_image", "json_model", "json_diagnostic", "z4_amplitude_png", "bogus"}) {
                auto const data = query(key, id);
                host.ask("data", 2, &data, resultData);
            }
            host.ask("format", 26, &request, formatted)
                .ask("rich", 26, &richRequest)
                .ask("valid", 27, R"({"elements":[]})")
                .ask("invalid", 27, R"({"elements":[{"type":"uint8","id":"x","format":{"base":1}}]})")
                .ask("free", 5, id.c_str())
                .ask("freed", 2, &image);
            if (!first) { // the answer depends on the machine's network
                host.ask("address", 20, "ipv4_address");
                return;
            }
            auto const noNumber = query("json_diagnostic", "x"); // an id that cannot number a chunk
            host.ask("nokey", 20, "nonsense").ask("chunk", 2, &noNumber);
            host.ask("sync", 10, nullptr).ask("apps", 14, nullptr, applications);
            for (int unsupported : {3, 18, 21, 23, -1, 0, 28})
                host.ask("id", unsupported, nullptr);
            host.send();
            plugin.send(plugin.init() == host.handle() ? "same" : "other");
            plugin.send(plugin.handleCall(nullptr, nullptr) == nullptr ? " nullhandle=none"
                                                                       : " nullhandle=reply");
            plugin.send(plugin.handleCall(host.handle(), nullptr) == nullptr ? " nullrequest=none"
                                                                             : " nullrequest=reply");
        };
        for (int i = 0; i < 10; ++i) // caches and first-use tables fill here
            round(i == 0);
        ResourceUsage const before = ResourceUsage::now();
        for (int i = 0; i < 100; ++i)
            round(false);
        ResourceUsage const growth = ResourceUsage::now() - before;
        plugin.send(" descriptors +" + std::to_string(growth.descriptors) + ", mappings +" +
                    std::to_string(growth.mappings) +
                    (growth.heap < 2048 ? ", heap flat" : ", heap +" + std::to_string(growth.heap)));
        return 0;
    });

    ASSERT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(
        child.output,
        "trigger=0/0 vendor=21/0/ORV ELECTRONIC mac=21/0/00:02:01:AB:CD:EF stats=23/0/1 stats5=23/100000004 "
        "apps=0/0/1:1,2,3, switch=18/0 get=0/100001004/1 set=0/100001004 acquire=0/0 "
        "data=3/0/distance_image:5:101:sized data=3/0/result:6:500:sized data=3/0/result:6:305:sized "
        "data=3/0/z4_amplitude_png:5:130:sized data=3/100001003/bogus:0:0 format=0/100000003/1:<1> "
        "rich=0/100000003 valid=0/0 invalid=0/100000004 free=0/0 freed=none nokey=21/100000004 chunk=none "
        "sync=0/0 "
        "apps=0/0/2:1,2,3, id=none id=none id=none id=none id=none id=none id=none same nullhandle=none "
        "nullrequest=none descriptors +0, mappings +0, heap flat");
    EXPECT_THAT(errors(),
                IsSupersetOf({"[VORN] unsupported command given: 3", "[VORN] unsupported command given: -1",
                              "execute: json_diagnostic(x): stoul"}));
}

TEST_F(PluginCommands, WithoutTheCamerasServicesOrARequestPayloadEachCommandAnswersItsFailureStatus)
{
    ScopedEnv noBus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_dir.file("no-bus"));
    ScopedEnv noFrames("ORV_FRAME_DIR", m_dir.file("frames"));
    ChildResult const child = runWithPlugin([](LoadedPlugin& plugin) {
        int32_t const application2[] = {2};
        auto const results = statistic("number_of_results", 1);
        auto const image = query("distance_image", "5");
        Host host(plugin);
        host.ask("vendor", 20, "vendor", infoValue)
            .ask("name", 20, "name")
            .ask("trigger", 9, nullptr)
            .ask("stats", 22, &results)
            .ask("apps", 14, nullptr, applications)
            .ask("switch", 17, application2)
            .ask("acquire", 4, "5")
            .ask("image", 2, &image)
            .ask("free", 5, "5");
        for (int id : {2, 4, 5, 11, 12, 17, 20, 22, 26, 27})
            host.ask("null", id, nullptr);
        host.send();
        return 0;
    });

    ASSERT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output,
              "vendor=21/0/ORV ELECTRONIC name=21/100000003 trigger=0/100000002 stats=23/100000004 "
              "apps=0/0/0: switch=18/100000002 acquire=0/100000003 image=none free=0/0 null=none "
              "null=none null=none null=0/100000003 null=0/100000003 null=18/100000003 "
              "null=21/100000004 null=23/100000003 null=0/100000003 null=0/100000004 ");
    std::vector<std::string> const logged = errors();
    ASSERT_FALSE(logged.empty());
    EXPECT_THAT(logged[0], HasSubstr("Connection Error ("));
}

TEST_F(PluginCommands, WhatUsedToEndTheHostIsServedOrRefusedAndTheNextRequestIsServed)
{
    // Stored settings every load reads: an expression that does not compile, a maximum of 0.
    m_redis.permanent().hset("LOG:PERM:CFG", "all", R"({"source":"all","segvregex":"(["})");
    m_redis.permanent().hset("LOG:PERM:CFG", "KSCOM", R"({"source":"KSCOM","max":0})");
    // A result whose model asks for a polygon of two billion corners.
    ScopedEnv frames("ORV_FRAME_DIR", m_dir.path());
    std::string amplitude(48, '\0');
    uint32_t const size[2] = {4, 2};
    memcpy(&amplitude[16], size, sizeof size);
    amplitude.append(16, '\x7f');
    ASSERT_TRUE(
        resultsync::FramePublisher(4, m_dir.path())
            .publish("9", {{"normalized_amplitude_image", amplitude.data(), uint32_t(amplitude.size())}}));
    m_redis.cache().hset("result_9", "ModelResult",
                         R"({"model_001":{"ROIs":{"1":{"type":"Regular","width":4,"points":2000000000}}}})");
    // Numbers of a size that once aborted the host or allocated without end.
    std::string const format = R"({"format":{"elements":[
        {"type":"float32","value":1.5,"format":{"precision":2147483647}},
        {"type":"string","value":"x","format":{"width":300000000}},
        {"type":"float32","value":2.5,"format":{"precision":1000000000}}]}})";

    ChildResult const child = runWithPlugin([&](LoadedPlugin& plugin) {
        FormatResultsRequest request{};
        request.json = format.data();
        request.jsonLength = uint32_t(format.size());
        auto const png = query("z4_amplitude_png", "9");
        auto length = [](unsigned char* data) {
            return std::to_string(reinterpret_cast<FormatResultsReply*>(data)->size);
        };
        Host(plugin)
            .ask("format", 26, &request, length)
            .ask("acquire", 4, "9")
            .ask("png", 2, &png, resultData)
            .ask("vendor", 20, "vendor", infoValue)
            .send();
        return 0;
    });
    ASSERT_EQ(child.exitCode, 0) << child.errors;
    // 1.5 and 2.5 with 99 decimals each, and a field of 65535.
    EXPECT_EQ(child.output, "format=0/100000003/65737 acquire=0/0 png=3/0/z4_amplitude_png:5:130:sized "
                            "vendor=21/0/ORV ELECTRONIC ");
    EXPECT_THAT(errors(), IsSupersetOf({HasSubstr("SigSegV Regexp(([) does not compile"),
                                        HasSubstr("max logs(0) is below 1")}));
}

TEST_F(PluginCommands, LoadingWithoutItsRedisEndsTheHostWithTheLoggersError)
{
    ScopedEnv nowhere("ORV_REDIS_CACHE_SOCKET", m_dir.file("nothing.sock"));
    ChildResult const child = runWithPlugin([](LoadedPlugin& plugin) {
        plugin.send("loaded");
        return 0;
    });
    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_THAT(child.errors, HasSubstr("No such file or directory"));

    // The host stub looks before it loads, and says what is missing.
    ProgramRun const host =
        runProgram(programCommand(KV_BINARY_DIR "/tools/vorn-host/vorn-host", {"device-info", "vendor"}));
    EXPECT_EQ(host.exitCode, 3);
    EXPECT_THAT(host.err, HasSubstr("needs its Redis cache at " + m_dir.file("nothing.sock")));
}

// Runs for the bus's whole default reply time-out (25 s): registered separately with the label
// "slow" and not part of the quick run.
TEST_F(PluginCommands, DISABLED_FailAfterTheBusTimeOutWhenAServiceNeverAnswers)
{
    DBusDaemon bus;
    CameraSim camera({0, "176x132", 8, 3, {"vornTrigger=noreply"}, ""});
    auto const start = std::chrono::steady_clock::now();
    ChildResult const child = runWithPlugin([](LoadedPlugin& plugin) {
        Host(plugin).ask("trigger", 9, nullptr).send();
        return 0;
    });
    auto const seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(child.output, "trigger=0/100000002 ");
    EXPECT_GE(seconds, 24);
    EXPECT_THAT(m_redis.cache().logMessages("ERROR"),
                ::testing::Contains("Error calling dbus method: org.freedesktop.DBus.Error.NoReply"));
}

} // namespace
