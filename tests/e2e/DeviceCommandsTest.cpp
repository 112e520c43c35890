// The device commands through the built plug-in, loaded like the host loads it, against the
// simulated camera's services on a private bus, and with no bus at all.
#include <chrono>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CamServices.h"
#include "DBusDaemon.h"
#include "EepromRecord.h"
#include "PluginChild.h"
#include "RedisServer.h"
#include "Require.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Umockdev.h"

using namespace orv::test;
using ::testing::Contains;
using ::testing::HasSubstr;

namespace {

struct StatisticRequest
{
    char key[256];
    int32_t representation;
};

// Requests from inside the plug-in child, each answer appended to one line of text.
class Session
{
public:
    Session(LoadedPlugin& plugin) : m_plugin(plugin), m_handle(plugin.init()) {}

    Session& status(char const* label, int id, void const* payload)
    {
        DataBlock* reply = m_plugin.request(m_handle, id, payload);
        m_out << label << "=" << (reply == nullptr ? std::string("none") : std::to_string(word(reply, 0)))
              << " ";
        m_last = reply;
        return *this;
    }
    Session& info(char const* key)
    {
        DataBlock* reply = m_plugin.request(m_handle, 20, key);
        m_out << key << "=" << word(reply, 0) << ":"
              << std::string(reinterpret_cast<char*>(reply->data) + 260) << " ";
        LoadedPlugin::freeReply(reply);
        return *this;
    }
    Session& ints(char const* label, int id, void const* payload, int words)
    {
        DataBlock* reply = m_plugin.request(m_handle, id, payload);
        m_out << label << "[" << reply->command << "]=";
        for (int i = 0; i < words; ++i)
            m_out << word(reply, i * 4) << (i + 1 < words ? "," : " ");
        LoadedPlugin::freeReply(reply);
        return *this;
    }
    Session& statistic(char const* key)
    {
        StatisticRequest request{};
        strncpy(request.key, key, sizeof request.key);
        request.representation = 1;
        DataBlock* reply = m_plugin.request(m_handle, 22, &request);
        void* value = nullptr;
        memcpy(&value, reply->data + (sizeof(void*) == 4 ? 268 : 272), sizeof value);
        m_out << key << "=" << word(reply, 0) << ":"
              << (value != nullptr ? *static_cast<uint32_t*>(value) : 0u) << " ";
        free(value);
        LoadedPlugin::freeReply(reply);
        return *this;
    }
    void done()
    {
        LoadedPlugin::freeReply(m_last);
        m_plugin.send(m_out.str());
    }

private:
    static int32_t word(DataBlock* reply, size_t offset)
    {
        int32_t value;
        memcpy(&value, reply->data + offset, sizeof value);
        return value;
    }

    LoadedPlugin& m_plugin;
    void* m_handle;
    std::ostringstream m_out;
    DataBlock* m_last = nullptr;
};

// Redis, the bus (or a dead bus address) and a three-port I/O board, set up for one test.
class Camera
{
public:
    explicit Camera(bool withBus)
    {
        bool const fakeDevices = underUmockdev();
        WithoutUmockdevPreload servers;
        m_redis = std::make_unique<RedisEnvironment>();
        if (withBus) {
            m_bus = std::make_unique<DBusDaemon>();
            m_services = std::make_unique<CamServices>();
        } else {
            m_noBus =
                std::make_unique<ScopedEnv>("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_dir.file("no-bus"));
        }
        m_frames = std::make_unique<ScopedEnv>("ORV_FRAME_DIR", m_dir.path());
        if (fakeDevices) {
            m_testbed = std::make_unique<UmockdevTestbed>();
            m_testbed->addEeprom("2-0050", eepromRecord('A', "A31"));
        }
    }

    CamServices& services() { return *m_services; }
    std::vector<std::string> entries() { return m_redis->cache().lrange("LOG:ENTRIES"); }

private:
    TempDir m_dir{"kv-cam"};
    std::unique_ptr<RedisEnvironment> m_redis;
    std::unique_ptr<DBusDaemon> m_bus;
    std::unique_ptr<CamServices> m_services;
    std::unique_ptr<ScopedEnv> m_noBus;
    std::unique_ptr<ScopedEnv> m_frames;
    std::unique_ptr<UmockdevTestbed> m_testbed;
};

int32_t const io1[] = {1};
int32_t const io3[] = {3};
int32_t const io4[] = {4};
int32_t const setIo1On[] = {1, 1};
int32_t const setIo3On[] = {3, 1};
int32_t const setIo4On[] = {4, 1};
int32_t const application2[] = {2};

TEST(DeviceCommands, AnswerEveryDeviceCommandThroughTheBus)
{
    KV_RUN_UNDER_UMOCKDEV();
    Camera camera(true);

    ChildResult const child = runWithPlugin([](LoadedPlugin& plugin) {
        Session(plugin)
            .info("vendor")
            .info("name")
            .info("mac_address")
            .info("article_number")
            .status("trigger", 9, nullptr)
            .status("sync", 10, nullptr)
            .statistic("number_of_results")
            .statistic("number_of_positive_decodings")
            .ints("apps", 14, nullptr, 6)
            .ints("switch", 17, application2, 1)
            .ints("apps", 14, nullptr, 3)
            .ints("get1", 12, io1, 3)
            .status("set1", 11, setIo1On)
            .ints("get1", 12, io1, 3)
            .status("set3", 11, setIo3On)
            .ints("get3", 12, io3, 3)
            .status("set4", 11, setIo4On)
            .ints("get4", 12, io4, 3)
            .done();
        return 0;
    });

    ASSERT_TRUE(child.exited) << child.errors;
    EXPECT_EQ(child.output, "vendor=0:ORV ELECTRONIC name=0:kestrel-sim mac_address=0:00:02:01:AB:CD:EF "
                            "article_number=0:KV2200AA trigger=0 sync=0 number_of_results=0:2 "
                            "number_of_positive_decodings=0:2 apps[0]=0,3,1,1,2,3 switch[18]=0 apps[0]=0,3,2 "
                            "get1[0]=0,1,0 set1=0 get1[0]=0,1,1 set3=100001005 get3[0]=0,3,0 set4=100001004 "
                            "get4[0]=100001004,4,0 ");
    // I/O 1 is pin 3 on this board; I/O 3 is pin 4, an input that stays as it was.
    EXPECT_EQ(camera.services().pin(3), std::make_pair(14, 1));
    EXPECT_EQ(camera.services().pin(4), std::make_pair(13, 0));
}

TEST(DeviceCommands, AnswerTheirFailureStatusWhenThereIsNoBus)
{
    KV_RUN_UNDER_UMOCKDEV();
    Camera camera(false);

    ChildResult const child = runWithPlugin([](LoadedPlugin& plugin) {
        Session(plugin)
            .info("vendor")
            .info("name")
            .info("mac_address")
            .status("trigger", 9, nullptr)
            .status("sync", 10, nullptr)
            .statistic("number_of_results")
            .ints("apps", 14, nullptr, 2)
            .ints("switch", 17, application2, 1)
            .ints("get1", 12, io1, 3)
            .status("set1", 11, setIo1On)
            .done();
        return 0;
    });

    ASSERT_TRUE(child.exited) << child.errors;
    EXPECT_EQ(child.output,
              "vendor=0:ORV ELECTRONIC name=100000003: mac_address=100000003: trigger=100000002 "
              "sync=100000002 number_of_results=100000004:0 apps[0]=0,0 switch[18]=100000002 "
              "get1[0]=100000002,1,0 set1=100000002 ");
    // The failed set-up is logged once; the calls after it fail without messages of their own.
    int errors = 0;
    for (std::string const& entry : camera.entries())
        if (entry.find("\"C\":\"ERROR\"") != std::string::npos) {
            ++errors;
            EXPECT_THAT(entry, HasSubstr("Connection Error ("));
        }
    EXPECT_EQ(errors, 1);
    EXPECT_THAT(camera.entries(), Contains(HasSubstr("Invalid request key provided: number_of_results")));
}

// Runs for the bus's whole default reply time-out (25 s): registered separately with the label
// "slow" and not part of the quick run.
TEST(DeviceCommands, DISABLED_FailAfterTheBusTimeOutWhenAServiceNeverAnswers)
{
    Camera camera(true);
    camera.services().setFault("vornTrigger", "noreply");

    auto const start = std::chrono::steady_clock::now();
    ChildResult const child = runWithPlugin(
        [](LoadedPlugin& plugin) {
            Session(plugin).status("trigger", 9, nullptr).done();
            return 0;
        },
        60000);
    auto const seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();

    ASSERT_TRUE(child.exited) << child.errors;
    EXPECT_EQ(child.output, "trigger=100000002 ");
    EXPECT_GE(seconds, 24);
    EXPECT_LT(seconds, 40);
    EXPECT_THAT(camera.entries(),
                Contains(HasSubstr("Error calling dbus method: org.freedesktop.DBus.Error.NoReply")));
}

} // namespace
