#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CamServices.h"
#include "DeviceBus.h"
#include "core/VornStatus.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

namespace orv {
namespace test {
namespace {

class MirelDBusConnectorTest : public ::testing::Test
{
protected:
    void SetUp() override { DeviceBus::instance().clearLog(); }

    void startServices(CamServicesOptions const& options = {})
    {
        m_services = std::make_unique<CamServices>(options);
    }
    CamServices& services() { return *m_services; }
    MirelDBusConnector& connector() { return DeviceBus::instance().connector(); }
    std::vector<std::string> messages() { return DeviceBus::instance().messages(); }

private:
    std::unique_ptr<CamServices> m_services;
};

TEST_F(MirelDBusConnectorTest, ReadsParametersHardwareInformationPinsAndApplicationsFromTheServices)
{
    startServices();
    ASSERT_TRUE(connector().connected());

    std::string name;
    ASSERT_TRUE(connector().getDeviceParam("Name", name));
    EXPECT_EQ(name, "kestrel-sim");

    std::map<std::string, std::string> info;
    ASSERT_TRUE(connector().getHWInfo(info));
    EXPECT_EQ(info["MACAddress"], "00:02:01:AB:CD:EF");

    std::vector<int> indices;
    int active = -1;
    ASSERT_EQ(connector().getApplicationList(indices, active), 0);
    EXPECT_THAT(indices, ElementsAre(1, 2, 3));
    EXPECT_EQ(active, 1);

    EXPECT_EQ(connector().activateApplication(3), 0);
    indices.clear();
    ASSERT_EQ(connector().getApplicationList(indices, active), 0);
    EXPECT_EQ(active, 3);

    int mode = -1;
    ASSERT_TRUE(connector().getIOMode(4, mode));
    EXPECT_EQ(mode, 13);
    ASSERT_TRUE(connector().setIO(5, 1));
    int state = -1;
    ASSERT_TRUE(connector().getIO(5, state));
    EXPECT_EQ(state, 1);
    EXPECT_EQ(services().pin(5).second, 1);
    EXPECT_THAT(messages(), Contains("setIO: PIN(5) state(1) res: 1"));
    EXPECT_THAT(messages(), Contains("getIOMode: PIN(4) mode: 13"));
}

TEST_F(MirelDBusConnectorTest, StatisticsCountTheTriggersThatReallyHappened)
{
    startServices();
    EXPECT_EQ(connector().releaseTrigger(), 0);
    EXPECT_EQ(connector().releaseTrigger(), 0);

    std::map<std::string, unsigned int> data;
    ASSERT_EQ(connector().getStatisticData(data), 0);
    EXPECT_EQ(data["number_of_results"], 2u);
    EXPECT_EQ(data["number_of_positive_decodings"], 2u);
    EXPECT_EQ(data["number_of_false_decodings"], 0u);
    EXPECT_EQ(data.size(), 3u);
    EXPECT_THAT(messages(), Contains("number_of_results: 2"));
}

TEST_F(MirelDBusConnectorTest, PassesTheTriggerCodeThroughAndRejectsMalformedTriggerReplies)
{
    startServices({{"vornTrigger=code:5"}});
    EXPECT_EQ(connector().releaseTrigger(), 5);

    services().setFault("vornTrigger", "extra");
    EXPECT_EQ(connector().releaseTrigger(), VornStatus::DeviceFailure);
    EXPECT_THAT(messages(), Contains("Expected one retval, but got 2"));

    services().setFault("vornTrigger", "type");
    EXPECT_EQ(connector().releaseTrigger(), VornStatus::DeviceFailure);
    EXPECT_THAT(messages(), Contains("Expected DBUS_TYPE_INT32, but got 115"));
}

TEST_F(MirelDBusConnectorTest, KeepsValuesDecodedBeforeAnUnsupportedType)
{
    startServices({{"getParameter=double"}});
    char const* name = "Name";
    std::list<DBUS_ARG_T> in{DBUS_ARG_T::string(name)};
    std::list<DBUS_ARG_T> out;

    EXPECT_EQ(connector().dbusCall("com.orv.quillon", "getParameter", in, out), VornStatus::DeviceFailure);

    EXPECT_THAT(messages(), Contains("Unsupported dbus type 100"));
    ASSERT_EQ(out.size(), 3u);
    // The texts stay readable after the reply message is gone.
    EXPECT_STREQ(std::next(out.begin(), 2)->value.s, "kestrel-sim");
    std::string value = "unchanged";
    EXPECT_FALSE(connector().getDeviceParam("Name", value));
    EXPECT_EQ(value, "unchanged");
}

TEST_F(MirelDBusConnectorTest, ChecksTheResultCodeAndTextAtTheHeadOfEveryReply)
{
    startServices({{"getParameter=type", "getPinStatus=code:7", "getHWInfo=extra", "setPinStatus=extra",
                    "getIOMode=error"}});
    std::string value;
    EXPECT_FALSE(connector().getDeviceParam("Name", value));
    EXPECT_THAT(messages(), Contains("DBUS_TYPE_INT32 expected"));

    int state = -1;
    EXPECT_FALSE(connector().getIO(1, state));
    EXPECT_EQ(state, -1);
    EXPECT_THAT(messages(), Contains("Error (7) occured: simulated failure"));

    std::map<std::string, std::string> info;
    EXPECT_FALSE(connector().getHWInfo(info));
    EXPECT_TRUE(info.empty());
    EXPECT_THAT(messages(), Contains("Expected three retvals, but got 4"));

    EXPECT_FALSE(connector().setIO(3, 1));
    EXPECT_THAT(messages(), Contains("Expected two retvals, but got 3"));
    EXPECT_THAT(messages(), Contains("setIO: PIN(3) state(1) res: 0"));

    int mode = -1;
    EXPECT_FALSE(connector().getIOMode(3, mode));
    EXPECT_THAT(messages(), Contains("Error calling dbus method: com.orv.Error.Failed"));
}

TEST_F(MirelDBusConnectorTest, ReadsForeignApplicationListsAndStopsAtAMissingIndex)
{
    startServices({{}, 40});
    std::vector<int> indices;
    int active = -1;
    ASSERT_EQ(connector().getApplicationList(indices, active), 0);
    ASSERT_EQ(indices.size(), 40u);
    EXPECT_EQ(indices.back(), 40);

    services().setApplications(0);
    indices.clear();
    active = -1;
    EXPECT_EQ(connector().getApplicationList(indices, active), 0);
    EXPECT_TRUE(indices.empty());
    EXPECT_EQ(active, 1);

    services().setApplications(2);
    services().setFault("getApplicationList", "noindex");
    EXPECT_EQ(connector().getApplicationList(indices, active), VornStatus::DeviceFailure);
    EXPECT_THAT(messages(), Contains("Key 'Index' not found in map"));
}

TEST_F(MirelDBusConnectorTest, RejectsDictionariesWithoutTextKeysOrVariantValues)
{
    startServices({{"getApplicationList=baddict", "getHWInfo=novariant"}});
    std::vector<int> indices;
    int active = -1;
    EXPECT_EQ(connector().getApplicationList(indices, active), VornStatus::DeviceFailure);
    EXPECT_THAT(messages(),
                Contains("DBUS_TYPE_STRING (key and values have to be strings in map) expected!"));
    EXPECT_THAT(messages(), Contains("err process dict"));

    std::map<std::string, std::string> info;
    EXPECT_FALSE(connector().getHWInfo(info));
    EXPECT_THAT(messages(), Contains("DBUS_TYPE_VARIANT expected!"));
}

TEST_F(MirelDBusConnectorTest, FailsWithoutAMessageWhenTheServiceIsNotOnTheBus)
{
    // No services started: the bus itself answers that nobody owns the name.
    std::string value;
    EXPECT_FALSE(connector().getDeviceParam("Name", value));
    EXPECT_THAT(messages(), Contains("Error calling dbus method: org.freedesktop.DBus.Error.ServiceUnknown"));
    EXPECT_THAT(messages(), Not(Contains("Reply Null")));
}

TEST(TimespecDiff, BorrowsASecondWhenTheNanosecondsGoNegative)
{
    timespec start{10, 900000000};
    timespec end{12, 100000000};
    timespec const d = diff(&start, &end);
    EXPECT_EQ(d.tv_sec, 1);
    EXPECT_EQ(d.tv_nsec, 200000000);
}

} // namespace
} // namespace test
} // namespace orv
