// The device-info command and its queries, the identification EEPROMs and the capabilities.
#include <cstring>
#include <iterator>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

#include <gmock/gmock.h>

#include "EepromRecord.h"
#include "RedisServer.h"
#include "ResourceUsage.h"
#include "Require.h"
#include "Umockdev.h"
#include "core/VornStatus.h"
#include "device/IMirelConnector.h"
#include "info/IdentEeprom.h"
#include "info/KSCapability.h"
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
        free(reply->data);
        free(reply);
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

TEST(IdentEeprom, CheckAcceptsOnlyVersions2And3WithTheKindsLetterAndTheRecordsCrc)
{
    // The records' CRC is computed bit by bit, independently of the plug-in's table.
    for (char const* version : {"00", "01", "02", "03", "04", "13"})
        EXPECT_EQ(ident_eeprom_check(KS_EEPROM_MAIN, eepromRecord('M', "M20", "", version).data()),
                  strcmp(version, "02") == 0 || strcmp(version, "03") == 0)
            << version;
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_FRONTEND, eepromRecord('M', "M20").data()));
    EXPECT_FALSE(ident_eeprom_check(21, eepromRecord('M', "M20").data()));
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, nullptr));
    std::vector<uint8_t> record = eepromRecord('M', "M20");
    record[50] ^= 0x10;
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, record.data()));
    record = eepromRecord('M', "M20");
    record[1] = '?';
    record[127] = crc8Bitwise(record.data(), 127);
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, record.data()));
}

TEST(IdentEeprom, FieldsAreReadWhateverTheLetterAndCrcButArticlesOnlyFromTheMainBoard)
{
    std::vector<uint8_t> record = eepromRecord('F', "X7Q", "KV2010CD");
    record[127] ^= 0x01;
    KSBoardIdent ident;
    KSArticle article;
    EXPECT_TRUE(ident_eeprom_get_board_ident(record.data(), &ident));
    EXPECT_FALSE(ident_eeprom_get_article(KS_EEPROM_MAIN, record.data(), &article));
    EXPECT_EQ(std::string(ident.letter) + ident.code + " " + article.designation + " " + article.suffix,
              "FX7Q KV2010 CD");
    EXPECT_FALSE(ident_eeprom_get_article(KS_EEPROM_FRONTEND, eepromRecord('F', "F40").data(), &article));
}

TEST(EepromOnDevices, ReadsTheRecordOfAKindFromItsAt24DeviceOnly)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-0053", eepromRecord('M', "M21"));
    testbed.addEeprom("2-0052", eepromRecord('D', "D01"), "i2c-other");
    // A device whose path only begins with the name.
    testbed.addEeprom("2-00540", eepromRecord('F', "F41"));

    close(STDIN_FILENO); // as in the host daemon: the record may be read through descriptor 0
    uint8_t buffer[128];
    ResourceUsage before;
    for (int i = 0; i < 60; ++i) {
        if (i == 10) // after the first reads: libudev and the fake devices set up on first use
            before = ResourceUsage::now();
        memset(buffer, 0, sizeof buffer);
        ASSERT_TRUE(ident_eeprom_read(KS_EEPROM_MAIN, buffer, sizeof buffer));
        EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 128), eepromRecord('M', "M21"));
    }
    // umockdev's fake devices may open a socket or buffer an event of their own meanwhile; a device,
    // enumeration or monitor left behind per read is 2 KB or a descriptor each time.
    ResourceUsage const growth = ResourceUsage::now() - before;
    EXPECT_LT(growth.descriptors, 10);
    EXPECT_LT(growth.heap, 32768);
    char path[256];
    for (auto const& [subsystem, driver, size] : {std::tuple<char const*, char const*, size_t>{"i2c", "at24", 0},
                                                  {nullptr, "at24", sizeof path}, {"i2c", nullptr, sizeof path}})
        EXPECT_FALSE(sysfsudev_resolve_path(subsystem, driver, nullptr, path, size)) << size;
    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_MAIN, buffer, 127));
    EXPECT_FALSE(ident_eeprom_read(15, buffer, sizeof buffer));
    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_DISPLAY, buffer, sizeof buffer));
    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_FRONTEND, buffer, sizeof buffer));
}

TEST(EepromOnDevices, CapabilitiesNeedTheListedBoardAndTheListedArticle)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    // A capability in neither table is present on every device, readable EEPROMs or not.
    EXPECT_TRUE(ks_has_capability(static_cast<KSCapability_t>(77)));
    testbed.addEeprom("2-0053", eepromRecord('M', "M20", "KV2010AA"));
    testbed.addEeprom("2-0054", eepromRecord('F', "F40"));
    // Board and article listed; board listed (M20), but the article not.
    EXPECT_TRUE(ks_has_capability(KS_CAP_EXTENDED_RANGE));
    EXPECT_FALSE(ks_has_capability(KS_CAP_HIGH_RESOLUTION));
    testbed.removeAll();
    testbed.addEeprom("2-0053", eepromRecord('M', "M20", "KV2200AA"));
    EXPECT_TRUE(ks_has_capability(KS_CAP_HIGH_RESOLUTION));
}

} // namespace
} // namespace orv::test
