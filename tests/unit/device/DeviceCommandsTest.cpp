#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DeviceBus.h"
#include "EepromRecord.h"
#include "Require.h"
#include "Umockdev.h"
#include "core/VornStatus.h"
#include "device/IMirelConnector.h"
#include "device/IOMapping.h"
#include "device/VORNAsyncTrigger.h"
#include "device/VORNGetApplicationList.h"
#include "device/VORNGetIO.h"
#include "device/VORNQueryStatisticInfo.h"
#include "device/VORNSetApplication.h"
#include "device/VORNSetIO.h"
#include "device/VORNSyncTrigger.h"

using ::testing::Contains;
using ::testing::ElementsAre;

namespace orv {
namespace test {
namespace {

// A device whose answers the test sets, recording what it was asked.
class FakeDevice : public IMirelConnector
{
public:
    int trigger = 0;
    std::vector<int> applications;
    int active = 0;
    int applicationStatus = 0;
    int switchStatus = 0;
    std::map<int, int> modes;
    std::map<int, int> states;
    bool failCalls = false;
    std::map<std::string, unsigned int> counters;
    std::vector<int> pinsWritten;
    int switchedTo = -1;

    int releaseTrigger() override { return trigger; }
    bool getDeviceParam(std::string const&, std::string&) override { return false; }
    bool getHWInfo(std::map<std::string, std::string>&) override { return false; }
    bool setIO(int pin, int state) override
    {
        if (failCalls)
            return false;
        pinsWritten.push_back(pin);
        states[pin] = state;
        return true;
    }
    bool getIO(int pin, int& state) override
    {
        if (failCalls)
            return false;
        state = states[pin];
        return true;
    }
    bool getIOMode(int pin, int& mode) override
    {
        if (failCalls)
            return false;
        mode = modes[pin];
        return true;
    }
    int getApplicationList(std::vector<int>& indices, int& activeOut) override
    {
        indices = applications;
        activeOut = active;
        return applicationStatus;
    }
    int activateApplication(int index) override
    {
        switchedTo = index;
        return switchStatus;
    }
    int getStatisticData(std::map<std::string, unsigned int>& data) override
    {
        if (failCalls)
            return VornStatus::DeviceFailure;
        data = counters;
        return 0;
    }
};

// Owns a reply block and its payload like the host, and frees both.
struct Reply
{
    explicit Reply(DataBlock* block) : block(block) {}
    ~Reply()
    {
        if (block != nullptr)
            free(block->data);
        free(block);
    }
    int32_t word(size_t offset) const
    {
        int32_t value;
        memcpy(&value, block->data + offset, sizeof value);
        return value;
    }
    DataBlock* block;
};

DataBlock requestWith(void* payload)
{
    DataBlock request{};
    request.data = static_cast<unsigned char*>(payload);
    return request;
}

class DeviceCommandsTest : public ::testing::Test
{
protected:
    void SetUp() override { DeviceBus::instance().clearLog(); }
    Logger::RedisLogger& logger() { return DeviceBus::instance().logger(); }
    FakeDevice device;
};

struct StatisticRequest
{
    char key[256];
    int32_t representation;
};

TEST_F(DeviceCommandsTest, StatisticsAnswerTheCounterInEachRepresentationAtTheDocumentedOffsets)
{
    device.counters = {{"number_of_results", 7}};
    VORNQueryStatisticInfo command(&device, logger());
    size_t const valueOffset = sizeof(void*) == 4 ? 268 : 272;

    auto ask = [&](char const* key, int32_t representation) {
        StatisticRequest payload{};
        strncpy(payload.key, key, sizeof payload.key);
        payload.representation = representation;
        DataBlock request = requestWith(&payload);
        return std::make_unique<Reply>(command.execute(&request));
    };
    auto valuePointer = [&](Reply const& reply) {
        void* pointer;
        memcpy(&pointer, reply.block->data + valueOffset, sizeof pointer);
        return pointer;
    };

    for (int32_t representation : {1, 2}) {
        auto reply = ask("number_of_results", representation);
        EXPECT_EQ(reply->block->command, 23);
        EXPECT_EQ(reply->word(0), 0);
        EXPECT_EQ(reply->word(260), representation);
        EXPECT_EQ(reply->word(264), 4);
        EXPECT_EQ(*static_cast<uint32_t*>(valuePointer(*reply)), 7u);
        free(valuePointer(*reply));
    }
    auto asFloat = ask("number_of_results", 3);
    EXPECT_EQ(*static_cast<float*>(valuePointer(*asFloat)), 7.0f);
    free(valuePointer(*asFloat));
    auto asDouble = ask("number_of_results", 4);
    EXPECT_EQ(asDouble->word(264), 8);
    EXPECT_EQ(*static_cast<double*>(valuePointer(*asDouble)), 7.0);
    free(valuePointer(*asDouble));

    for (int32_t rejected : {0, 5}) {
        auto reply = ask("number_of_results", rejected);
        EXPECT_EQ(reply->word(0), VornStatus::RejectedArgument);
        EXPECT_EQ(reply->word(264), 0);
        EXPECT_EQ(valuePointer(*reply), nullptr);
    }

    auto unknown = ask("number_of_sunsets", 1);
    EXPECT_EQ(unknown->word(0), 0);
    EXPECT_EQ(*static_cast<uint32_t*>(valuePointer(*unknown)), 0u);
    free(valuePointer(*unknown));
}

TEST_F(DeviceCommandsTest, StatisticsNameTheKeyWhenTheDeviceCannotBeAsked)
{
    device.failCalls = true;
    VORNQueryStatisticInfo command(&device, logger());
    StatisticRequest payload{};
    strcpy(payload.key, "number_of_false_decodings");
    payload.representation = 1;
    DataBlock request = requestWith(&payload);
    Reply reply(command.execute(&request));

    EXPECT_EQ(reply.word(0), VornStatus::RejectedArgument);
    EXPECT_THAT(DeviceBus::instance().messages(),
                Contains("Invalid request key provided: number_of_false_decodings"));

    VORNQueryStatisticInfo unconnected(nullptr, logger());
    Reply noDevice(unconnected.execute(&request));
    EXPECT_EQ(noDevice.word(0), VornStatus::GenericFailure);
    Reply noRequest(command.execute(nullptr));
    EXPECT_EQ(noRequest.word(0), VornStatus::GenericFailure);
}

TEST_F(DeviceCommandsTest, ApplicationListKeepsTheFirst32IndicesAndSucceedsWheneverADeviceIsPresent)
{
    for (int i = 0; i < 40; ++i)
        device.applications.push_back(100 + i);
    device.active = 105;
    device.applicationStatus = VornStatus::DeviceFailure;
    VORNGetApplicationList command(&device, logger());
    Reply reply(command.execute(nullptr));

    EXPECT_EQ(reply.block->command, 0);
    EXPECT_EQ(reply.word(0), 0);
    EXPECT_EQ(reply.word(4), 32);
    EXPECT_EQ(reply.word(8), 105);
    EXPECT_EQ(reply.word(12), 100);
    EXPECT_EQ(reply.word(12 + 31 * 4), 131);

    VORNGetApplicationList unconnected(nullptr, logger());
    Reply noDevice(unconnected.execute(nullptr));
    EXPECT_EQ(noDevice.word(0), VornStatus::GenericFailure);
}

TEST_F(DeviceCommandsTest, TriggersAndApplicationSwitchPassTheDevicesCodeThrough)
{
    device.trigger = 5;
    VORNAsyncTrigger async(&device, logger());
    VORNSyncTrigger sync(&device, logger());
    Reply first(async.execute(nullptr));
    Reply second(sync.execute(nullptr));
    EXPECT_EQ(first.word(0), 5);
    EXPECT_EQ(second.word(0), 5);
    EXPECT_EQ(first.block->command, 0);
    EXPECT_EQ(second.block->command, 0);

    device.switchStatus = 100000004;
    VORNSetApplication set(&device, logger());
    int32_t index = 9;
    DataBlock request = requestWith(&index);
    Reply switched(set.execute(&request));
    EXPECT_EQ(switched.block->command, 18);
    EXPECT_EQ(switched.word(0), 100000004);
    EXPECT_EQ(device.switchedTo, 9);

    VORNSetApplication unconnected(nullptr, logger());
    Reply noDevice(unconnected.execute(&request));
    EXPECT_EQ(noDevice.word(0), VornStatus::GenericFailure);
}

// The I/O commands choose pins from the I/O board's identification EEPROM.
class IOCommandsTest : public DeviceCommandsTest
{
protected:
    int32_t setIO(VORNSetIO& command, int io, int state)
    {
        int32_t payload[2] = {io, state};
        DataBlock request = requestWith(payload);
        Reply reply(command.execute(&request));
        return reply.word(0);
    }
};

TEST_F(IOCommandsTest, ThreePortBoardMapsIOs123ToPins354AndWritesOnlyOutputs)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-0050", eepromRecord('A', "A31"));

    EXPECT_EQ(IOMapping::getIOPin(1), 3);
    EXPECT_EQ(IOMapping::getIOPin(2), 5);
    EXPECT_EQ(IOMapping::getIOPin(3), 4);
    for (int io : {0, -1, 4})
        EXPECT_EQ(IOMapping::getIOPin(io), IOMapping::NoPin) << io;

    device.modes = {{3, IO_MODE_OUTPUT}, {5, IO_MODE_OUTPUT}, {4, IO_MODE_OUTPUT}};
    VORNSetIO set(&device, logger());
    EXPECT_EQ(setIO(set, 2, 1), 0);
    EXPECT_EQ(setIO(set, 3, 1), 0);
    EXPECT_THAT(device.pinsWritten, ElementsAre(5, 4));

    device.modes[4] = 13;
    EXPECT_EQ(setIO(set, 3, 0), VornStatus::PinNotInOutputMode);
    EXPECT_EQ(device.states[4], 1);
    EXPECT_EQ(setIO(set, 0, 1), VornStatus::InvalidIONumber);

    device.failCalls = true;
    EXPECT_EQ(setIO(set, 1, 1), VornStatus::DeviceFailure);
    VORNSetIO unconnected(nullptr, logger());
    EXPECT_EQ(setIO(unconnected, 1, 1), VornStatus::GenericFailure);
}

TEST_F(IOCommandsTest, GetIOEchoesTheIONumberAndReportsTheState)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-0050", eepromRecord('A', "A22"));
    device.states = {{1, 1}};

    VORNGetIO get(&device, logger());
    int32_t io = 2;
    DataBlock request = requestWith(&io);
    Reply reply(get.execute(&request));
    EXPECT_EQ(reply.block->command, 0);
    EXPECT_EQ(reply.word(0), 0);
    EXPECT_EQ(reply.word(4), 2);
    EXPECT_EQ(reply.word(8), 1);

    // The two-port board has no third I/O.
    io = 3;
    Reply third(get.execute(&request));
    EXPECT_EQ(third.word(0), VornStatus::InvalidIONumber);
    EXPECT_EQ(third.word(4), 3);

    device.failCalls = true;
    io = 1;
    Reply failed(get.execute(&request));
    EXPECT_EQ(failed.word(0), VornStatus::DeviceFailure);
}

TEST_F(IOCommandsTest, DeviceWithoutAReadableIOBoardHasNoIOs)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    std::vector<uint8_t> corrupt = eepromRecord('A', "A31");
    corrupt[127] ^= 0x01;
    testbed.addEeprom("2-0050", corrupt);

    for (int io : {1, 2, 3})
        EXPECT_EQ(IOMapping::getIOPin(io), IOMapping::NoPin) << io;
}

} // namespace
} // namespace test
} // namespace orv
