// The device-info command and its queries.
#include <cstring>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "RedisServer.h"
#include "Require.h"
#include "core/VornStatus.h"
#include "device/IMirelConnector.h"
#include "info/VORNQueryDeviceInfo.h"
#include "logger/RedisLogger.h"

using namespace ::testing;

namespace orv::test {
namespace {

class MockDevice : public IMirelConnector
{
public:
    MOCK_METHOD(int, releaseTrigger, (), (override));
    MOCK_METHOD(bool, getDeviceParam, (std::string const&, std::string&), (override));
    MOCK_METHOD(bool, getHWInfo, ((std::map<std::string, std::string>&)), (override));
    MOCK_METHOD(bool, setIO, (int, int), (override));
    MOCK_METHOD(bool, getIO, (int, int&), (override));
    MOCK_METHOD(bool, getIOMode, (int, int&), (override));
    MOCK_METHOD(int, getApplicationList, (std::vector<int>&, int&), (override));
    MOCK_METHOD(int, activateApplication, (int), (override));
    MOCK_METHOD(int, getStatisticData, ((std::map<std::string, unsigned int>&)), (override));
};

class VORNQueryDeviceInfoTest : public Test
{
protected:
    // The reply's value, or its status when that is not 0; the reply echoes a known key.
    std::string ask(char const* key)
    {
        DataBlock request{};
        request.data = reinterpret_cast<unsigned char*>(const_cast<char*>(key));
        DataBlock* reply = command.execute(&request);
        int32_t const status = *reinterpret_cast<int32_t*>(reply->data);
        char const* echo = reinterpret_cast<char const*>(reply->data + 4);
        EXPECT_EQ(std::string(echo, strnlen(echo, 256)), status == VornStatus::RejectedArgument ? "" : key);
        std::string const answer =
            status != 0 ? std::to_string(status) : std::string(echo + 256, strnlen(echo + 256, 256));
        free(reply->data), free(reply);
        return answer;
    }

    // The address, netmask and gateway answers in a child inside a network namespace of its own
    // with eth0 and its peer eth1, after `setup`; it all vanishes with the child.
    std::string onNetwork(std::string const& setup)
    {
        auto* shared =
            static_cast<char*>(mmap(nullptr, 256, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        strcpy(shared, "no network namespace");
        std::string const links =
            "ip link add eth0 type veth peer name eth1 && ip link set eth0 up && ip link set eth1 up";
        if (fork() == 0) {
            if (unshare(CLONE_NEWNET) == 0 && system((links + setup).c_str()) == 0)
                snprintf(shared, 256, "%s %s %s", ask("ipv4_address").c_str(), ask("ipv4_subnetmask").c_str(),
                         ask("ipv4_gateway").c_str());
            _exit(0);
        }
        wait(nullptr);
        std::string const answers = shared;
        munmap(shared, 256);
        return answers;
    }

    NiceMock<MockDevice> device;
    RedisServer redis;
    Logger::RedisLogger logger{"KSCOM", redis.socketPath().c_str(), "LOG:ENTRIES", false};
    VORNQueryDeviceInfo command{&device, logger};
};

TEST_F(VORNQueryDeviceInfoTest, AnswersFromTheDeviceCutToTheFieldAndRejectsUnknownKeys)
{
    std::string const description = std::string(200, 'a') + std::string(100, 'b');
    ON_CALL(device, getDeviceParam("Description", _))
        .WillByDefault(DoAll(SetArgReferee<1>(description), Return(true)));
    EXPECT_EQ(ask("device_info"), std::string(200, 'a') + std::string(56, 'b'));
    EXPECT_EQ(ask("article_number"), "100000003"); // the device does not answer it
    EXPECT_EQ(ask(std::string(300, 'k').c_str()), "100000004");
    EXPECT_EQ(ask(nullptr), "100000004");
}

TEST_F(VORNQueryDeviceInfoTest, AsksForTheMacAddressOnlyUntilItIsKnown)
{
    std::map<std::string, std::string> const serial{{"SerialNumber", "1"}};
    std::map<std::string, std::string> const mac{{"MACAddress", "00:02:01:12:34:56"}};
    EXPECT_CALL(device, getHWInfo(_))
        .WillOnce(DoAll(SetArgReferee<0>(serial), Return(true)))
        .WillOnce(DoAll(SetArgReferee<0>(mac), Return(true)));
    EXPECT_EQ(ask("mac_address"), "100000003");
    EXPECT_EQ(ask("mac_address"), "00:02:01:12:34:56");
    EXPECT_EQ(ask("mac_address"), "00:02:01:12:34:56");
}

using NetworkQueries = VORNQueryDeviceInfoTest;

TEST_F(NetworkQueries, AnswerTheFirstUsableAddressOfEth0AndOnlyADefaultRouteViaEth0)
{
    KV_REQUIRE(onNetwork("") != "no network namespace", "network namespaces need root");
    EXPECT_EQ(onNetwork(" && ip addr add 192.0.2.10/24 dev eth0 && ip route add default via 192.0.2.1"),
              "192.0.2.10 255.255.255.0 192.0.2.1");
    // A link-local address is skipped; a default route via another interface is none.
    EXPECT_EQ(onNetwork(" && ip addr add 169.254.7.8/16 dev eth0 && ip addr add 192.0.2.10/25 dev eth0 && "
                        "ip addr add 192.0.2.130/25 dev eth1 && ip route add default via 192.0.2.129"),
              "192.0.2.10 255.255.255.128 100000003");
    // IPv6 is on, as on a camera: eth0's fe80:: address is no answer to a key that names IPv4.
    EXPECT_EQ(
        onNetwork(" && echo 0 > /proc/sys/net/ipv6/conf/eth0/disable_ipv6 && ip addr add 169.254.7.8/16 "
                  "dev eth0 && for i in $(seq 100); do ip -6 addr show dev eth0 | grep -q fe80 && break; "
                  "sleep 0.05; done && ip -6 addr show dev eth0 | grep -q fe80"),
        "100000003 100000003 100000003");
}

} // namespace
} // namespace orv::test
