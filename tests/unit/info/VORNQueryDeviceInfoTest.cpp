#include <cstdlib>
#include <cstring>
#include <functional>
#include <sched.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "RedisServer.h"
#include "Require.h"
#include "core/VornStatus.h"
#include "device/IMirelConnector.h"
#include "info/NetworkQueries.h"
#include "info/VORNQueryDeviceInfo.h"
#include "logger/RedisLogger.h"

namespace orv {
namespace test {
namespace {

// Parameters and hardware information the test sets; counts how often it was asked.
class FakeDevice : public IMirelConnector
{
public:
    std::map<std::string, std::string> parameters;
    std::map<std::string, std::string> hwInfo;
    bool reachable = true;
    int hwInfoCalls = 0;

    int releaseTrigger() override { return 0; }
    bool getDeviceParam(std::string const& name, std::string& value) override
    {
        auto const it = parameters.find(name);
        if (!reachable || it == parameters.end())
            return false;
        value = it->second;
        return true;
    }
    bool getHWInfo(std::map<std::string, std::string>& info) override
    {
        ++hwInfoCalls;
        if (!reachable)
            return false;
        info = hwInfo;
        return true;
    }
    bool setIO(int, int) override { return false; }
    bool getIO(int, int&) override { return false; }
    bool getIOMode(int, int&) override { return false; }
    int getApplicationList(std::vector<int>&, int&) override { return 0; }
    int activateApplication(int) override { return 0; }
    int getStatisticData(std::map<std::string, unsigned int>&) override { return 0; }
};

struct Answer
{
    int32_t code = -1;
    int32_t status = -1;
    std::string key;   // up to 256 bytes, without relying on a terminator
    std::string value; // likewise
};

class VORNQueryDeviceInfoTest : public ::testing::Test
{
protected:
    VORNQueryDeviceInfoTest()
        : m_logger("KSCOM", m_redis.cache().socketPath().c_str(), "LOG:ENTRIES", false),
          m_command(&device, m_logger)
    {}

    Answer ask(std::string const& key) { return ask(key.c_str()); }
    Answer ask(char const* key)
    {
        DataBlock request{};
        request.data = reinterpret_cast<unsigned char*>(const_cast<char*>(key));
        return answer(m_command.execute(&request));
    }
    static Answer answer(DataBlock* reply)
    {
        Answer a;
        a.code = reply->command;
        memcpy(&a.status, reply->data, 4);
        char const* key = reinterpret_cast<char const*>(reply->data + 4);
        char const* value = reinterpret_cast<char const*>(reply->data + 260);
        a.key.assign(key, strnlen(key, 256));
        a.value.assign(value, strnlen(value, 256));
        free(reply->data);
        free(reply);
        return a;
    }

    FakeDevice device;
    RedisEnvironment m_redis;
    Logger::RedisLogger m_logger;
    VORNQueryDeviceInfo m_command;
};

TEST_F(VORNQueryDeviceInfoTest, AnswersConstantsAndDeviceParametersByKey)
{
    device.parameters = {{"ArticleNumber", "KV2200AA"},
                         {"Name", "line-4"},
                         {"Description", "pallet check"},
                         {"IPAddressConfig", "1"}};
    std::map<std::string, std::string> const expected = {{"vendor", "ORV ELECTRONIC"},
                                                         {"location", "New Location"},
                                                         {"port_number", "80"},
                                                         {"article_number", "KV2200AA"},
                                                         {"name", "line-4"},
                                                         {"device_info", "pallet check"},
                                                         {"ipv4_dhcp", "1"}};
    for (auto const& item : expected) {
        Answer const a = ask(item.first);
        EXPECT_EQ(a.code, 21);
        EXPECT_EQ(a.status, 0) << item.first;
        EXPECT_EQ(a.key, item.first);
        EXPECT_EQ(a.value, item.second);
    }

    device.reachable = false;
    Answer const unreachable = ask("name");
    EXPECT_EQ(unreachable.status, VornStatus::GenericFailure);
    EXPECT_EQ(unreachable.key, "name");
    EXPECT_EQ(unreachable.value, "");
    EXPECT_EQ(ask("vendor").status, 0);
}

TEST_F(VORNQueryDeviceInfoTest, RejectsUnknownKeysAndCutsLongTextsAt256Bytes)
{
    Answer const unknown = ask(std::string(300, 'k'));
    EXPECT_EQ(unknown.status, VornStatus::RejectedArgument);
    EXPECT_EQ(unknown.key, "");

    DataBlock empty{};
    EXPECT_EQ(answer(m_command.execute(&empty)).status, VornStatus::RejectedArgument);
    EXPECT_EQ(answer(m_command.execute(nullptr)).status, VornStatus::RejectedArgument);

    device.parameters = {{"Description", std::string(200, 'a') + std::string(100, 'b')}};
    Answer const long_ = ask("device_info");
    EXPECT_EQ(long_.status, 0);
    EXPECT_EQ(long_.value, std::string(200, 'a') + std::string(56, 'b'));
}

TEST_F(VORNQueryDeviceInfoTest, AsksForTheMacAddressOnlyUntilItIsKnown)
{
    device.hwInfo = {{"SerialNumber", "1"}};
    EXPECT_EQ(ask("mac_address").status, VornStatus::GenericFailure);
    device.hwInfo = {{"MACAddress", "00:02:01:12:34:56"}};
    EXPECT_EQ(ask("mac_address").value, "00:02:01:12:34:56");
    device.hwInfo = {{"MACAddress", "00:02:01:99:99:99"}};
    Answer const again = ask("mac_address");
    EXPECT_EQ(again.value, "00:02:01:12:34:56");
    EXPECT_EQ(device.hwInfoCalls, 2);
}

// Runs `setup` (shell commands) and `body` in a child inside a network namespace of its own; the
// namespace and its links vanish with the child. Returns what body returned, or "unshare failed".
std::string inNetworkNamespace(std::string const& setup, std::function<std::string()> const& body)
{
    int out[2];
    if (pipe(out) != 0)
        return "pipe failed";
    pid_t const pid = fork();
    if (pid == 0) {
        close(out[0]);
        std::string result;
        if (unshare(CLONE_NEWNET) != 0)
            result = "unshare failed";
        else if (system(setup.c_str()) != 0)
            result = "setup failed";
        else
            result = body();
        (void)!write(out[1], result.data(), result.size());
        _exit(0);
    }
    close(out[1]);
    std::string result;
    char buffer[512];
    ssize_t got;
    while ((got = read(out[0], buffer, sizeof buffer)) > 0)
        result.append(buffer, got);
    close(out[0]);
    waitpid(pid, nullptr, 0);
    return result;
}

std::string networkAnswers()
{
    std::string result;
    for (QueryDeviceInfo* query : std::initializer_list<QueryDeviceInfo*>{
             new QueryIPV4Address(nullptr), new QueryIPV4Subnet(nullptr), new QueryIPV4Gateway(nullptr)}) {
        std::string value;
        result += query->execute(value) ? value : "-";
        result += "|";
        delete query;
    }
    return result;
}

constexpr char const* kEth0 = "ip link set lo up && ip link add eth0 type veth peer name eth1 && "
                              "echo 1 > /proc/sys/net/ipv6/conf/eth0/disable_ipv6 && "
                              "echo 1 > /proc/sys/net/ipv6/conf/eth1/disable_ipv6 && "
                              "ip link set eth0 up && ip link set eth1 up && ";

bool namespacesWork()
{
    return inNetworkNamespace("true", [] { return std::string("ok"); }) == "ok";
}

TEST(NetworkQueries, ReadAddressNetmaskAndDefaultGatewayOfEth0)
{
    KV_REQUIRE(namespacesWork(), "network namespaces need root");
    std::string const answers = inNetworkNamespace(
        std::string(kEth0) +
            "ip addr add 192.0.2.10/24 dev eth0 && ip route add default via 192.0.2.1 dev eth0",
        networkAnswers);
    EXPECT_EQ(answers, "192.0.2.10|255.255.255.0|192.0.2.1|");
}

TEST(NetworkQueries, SkipLinkLocalAddressesAndDefaultRoutesViaOtherInterfaces)
{
    KV_REQUIRE(namespacesWork(), "network namespaces need root");
    std::string const linkLocal =
        inNetworkNamespace(std::string(kEth0) + "ip addr add 169.254.7.8/16 dev eth0", networkAnswers);
    EXPECT_EQ(linkLocal, "-|-|-|");

    std::string const otherRoute = inNetworkNamespace(
        std::string(kEth0) + "ip addr add 192.0.2.10/25 dev eth0 && ip addr add 192.0.2.130/25 dev eth1 && "
                             "ip route add default via 192.0.2.129 dev eth1",
        networkAnswers);
    EXPECT_EQ(otherRoute, "192.0.2.10|255.255.255.128|-|");

    EXPECT_EQ(inNetworkNamespace("ip link set lo up", networkAnswers), "-|-|-|");
}

} // namespace
} // namespace test
} // namespace orv
