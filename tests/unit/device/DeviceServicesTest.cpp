// The device connector and the device commands against the simulated camera's device services.
#include <array>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include <gmock/gmock.h>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "EepromRecord.h"
#include "RedisServer.h"
#include "Require.h"
#include "ScopedEnv.h"
#include "Umockdev.h"
#include "core/VornStatus.h"
#include "device/IOMapping.h"
#include "device/MirelDBusConnector.h"
#include "device/VORNGetApplicationList.h"
#include "device/VORNGetIO.h"
#include "device/VORNQueryStatisticInfo.h"
#include "device/VORNSetApplication.h"
#include "device/VORNSetIO.h"
#include "logger/RedisLogger.h"

using namespace ::testing;

namespace orv::test {
namespace {

// One Redis, one private bus and one connector for the whole program, as in the plug-in: the
// connector claims its bus name, and libdbus keeps one system-bus connection, per process.
struct DeviceBus : Environment
{
    void SetUp() override
    {
        ScopedEnv servers("LD_PRELOAD", ""); // redis-server (jemalloc) hangs under umockdev's preload
        services = std::make_unique<Services>();
    }
    void TearDown() override { services.reset(); }

    struct Services
    {
        RedisEnvironment redis;
        Logger::RedisLogger logger{"KSCOM", redis.cache().socketPath().c_str(), "LOG:ENTRIES", false};
        DBusDaemon bus;
        MirelDBusConnector connector{logger};
    };
    std::unique_ptr<Services> services;
};
DeviceBus& deviceBus = *static_cast<DeviceBus*>(AddGlobalTestEnvironment(new DeviceBus));

class DeviceTest : public Test
{
protected:
    void SetUp() override { redis().command({"DEL", "LOG:ENTRIES"}); }
    void start(std::vector<std::string> const& faults = {}, int applications = 3)
    {
        ScopedEnv plain("LD_PRELOAD", "");
        camera = std::make_unique<CameraSim>(CameraSimOptions{0, "176x132", 8, applications, faults, ""});
    }
    MirelDBusConnector& connector() { return deviceBus.services->connector; }
    RedisServer& redis() { return deviceBus.services->redis.cache(); }

    // Runs a command on the connector with `payload` as the request's data; the first `bytes` of
    // the reply's payload as words. Frees the reply like the host.
    template <typename Command, typename Payload> std::vector<int32_t> run(Payload payload, size_t bytes = 4)
    {
        DataBlock request{};
        request.data = reinterpret_cast<unsigned char*>(&payload);
        DataBlock* reply = Command(&connector(), deviceBus.services->logger).execute(&request);
        std::vector<int32_t> words(reinterpret_cast<int32_t*>(reply->data),
                                   reinterpret_cast<int32_t*>(reply->data + bytes));
        free(reply->data);
        free(reply);
        return words;
    }
    // The statistics reply to `key` in `representation`: status, representation, size and the
    // value's bytes, or "null".
    std::string statistic(char const* key, int32_t representation)
    {
        std::array<char, 260> request{}; // a 256-byte key, then the representation
        strncpy(request.data(), key, 255);
        memcpy(request.data() + 256, &representation, 4);
        size_t const valueOffset = sizeof(void*) == 4 ? 268 : 272; // after the size word, aligned
        auto const reply = run<VORNQueryStatisticInfo>(request, valueOffset + sizeof(void*));
        char* pointer;
        memcpy(&pointer, &reply[valueOffset / 4], sizeof pointer);
        std::string const answer = std::to_string(reply[0]) + " " + std::to_string(reply[65]) + " " +
                                   std::to_string(reply[66]) + " " +
                                   (pointer ? std::string(pointer, reply[66]) : "null");
        free(pointer);
        return answer;
    }

    std::unique_ptr<CameraSim> camera;
};

TEST_F(DeviceTest, ConnectorRejectsRepliesThatBreakTheServicesConventionAndSaysWhyInTheLog)
{
    start();
    camera->setPin(3, 13, 0);
    // The connector's call to the faulty method: its result, then its outputs when it changed them
    // (a failure must leave them as they were; the application list's indices are not looked at).
    auto const call = [&](std::string const& method) {
        std::string text = "unchanged";
        int value = -1, active = -1;
        std::map<std::string, std::string> info = {{"kept", "yes"}};
        std::vector<int> indices;
        std::map<std::string, unsigned int> counters;
        int const result = method == "vornTrigger"          ? connector().releaseTrigger()
                           : method == "getParameter"       ? connector().getDeviceParam("Name", text)
                           : method == "getHWInfo"          ? connector().getHWInfo(info)
                           : method == "getPinStatus"       ? connector().getIO(3, value)
                           : method == "getIOMode"          ? connector().getIOMode(3, value)
                           : method == "setPinStatus"       ? connector().setIO(3, 1)
                           : method == "getApplicationList" ? connector().getApplicationList(indices, active)
                           : method == "switchApplication"  ? connector().activateApplication(2)
                                                            : connector().getStatisticData(counters);
        std::string const outputs = text + " " + std::to_string(value) + " " + std::to_string(info.size()) +
                                    " " + std::to_string(counters.size());
        return std::to_string(result) + (outputs == "unchanged -1 1 0" ? "" : " -> " + outputs);
    };
    struct Case
    {
        char const *method, *kind; // the fault, as camsim takes it
        char const* answer;
        std::vector<std::string> logged; // the ERROR entries, in order
    } const cases[] = {
        {"vornTrigger", "code:5", "5", {}}, // the trigger's single value is the service's own code
        {"vornTrigger", "extra", "100000002", {"Expected one retval, but got 2"}},
        {"vornTrigger", "type", "100000002", {"Expected DBUS_TYPE_INT32, but got 115"}},
        {"vornTrigger", "error", "100000002", {"Error calling dbus method: com.orv.Error.Failed"}},
        {"vornTrigger", "double", "100000002", {"Unsupported dbus type 100"}},
        {"getParameter", "code:7", "0", {"Error (7) occured: simulated failure"}},
        {"getParameter", "type", "0", {"DBUS_TYPE_INT32 expected"}},
        {"getParameter", "extra", "0", {"Expected three retval, but got 4"}},
        {"getParameter", "valuetype", "0", {"Expected DBUS_TYPE_STRING, but got 105"}},
        {"getParameter", "textcode", "0", {"DBUS_TYPE_INT32 expected"}},
        {"getHWInfo", "novariant", "0", {"DBUS_TYPE_VARIANT expected!", "err process dict"}},
        {"getHWInfo",
         "baddict",
         "0",
         {"DBUS_TYPE_STRING (key and values have to be strings in map) expected!", "err process dict"}},
        {"getHWInfo", "extra", "0", {"Expected three retvals, but got 4"}},
        {"getHWInfo", "valuetype", "0", {"Expected DBUS_TYPE_STRING, but got 105"}},
        {"getPinStatus", "code:7", "0", {"Error (7) occured: simulated failure"}},
        {"getPinStatus", "extra", "0", {"Expected three retvals, but got 4"}},
        {"getPinStatus", "valuetype", "0", {"Expected DBUS_TYPE_INT32, but got 115"}},
        // A success, logged at ERROR.
        {"getIOMode", "none", "1 -> unchanged 13 1 0", {"getIOMode: PIN(3) mode: 13"}},
        {"getIOMode", "type", "0", {"DBUS_TYPE_INT32 expected"}},
        {"setPinStatus", "extra", "0", {"Expected two retvals, but got 3", "setIO: PIN(3) state(1) res: 0"}},
        {"setPinStatus",
         "none",
         "0",
         {"Error (-3) occured: pin is not an output", "setIO: PIN(3) state(1) res: 0"}},
        {"getApplicationList", "noindex", "100000002", {"Key 'Index' not found in map"}},
        {"getApplicationList", "extra", "100000002", {"Expected DBUS_TYPE_DICT, but got 105"}},
        {"getApplicationList", "code:3", "100000002", {"Error (3) occured: simulated failure"}},
        {"switchApplication", "code:9", "9", {}},
        {"switchApplication", "extra", "100000002", {"Expected 2 retvals, but got 3"}},
        {"getStatistics", "code:5", "100000002", {"Expected 4 retvals, but got 6"}},
        {"getStatistics", "error", "100000002", {"Error calling dbus method: com.orv.Error.Failed"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.method) + "=" + c.kind);
        camera->setFault(c.method, c.kind);
        redis().command({"DEL", "LOG:ENTRIES"});
        EXPECT_EQ(call(c.method), c.answer);
        EXPECT_EQ(redis().logMessages("ERROR"), c.logged);
        camera->setFault(c.method, "none");
    }
}

TEST_F(DeviceTest, StatisticsAnswerTheCounterInTheRequestedRepresentationAndAnUnknownKeyAsZero)
{
    start();
    camera->setCounters(7, 11, 13, 17); // triggers, results, positive, false: four values, so none swaps
    char const* const results = "number_of_results";
    auto bytes = [](auto value) { return std::string(reinterpret_cast<char const*>(&value), sizeof value); };
    EXPECT_EQ(statistic(results, 1), "0 1 4 " + bytes(11u));
    EXPECT_EQ(statistic(results, 2), "0 2 4 " + bytes(11u));
    EXPECT_EQ(statistic(results, 3), "0 3 4 " + bytes(11.0f));
    EXPECT_EQ(statistic(results, 4), "0 4 8 " + bytes(11.0));
    EXPECT_EQ(statistic("number_of_positive_decodings", 1), "0 1 4 " + bytes(13u));
    EXPECT_EQ(statistic("number_of_false_decodings", 1), "0 1 4 " + bytes(17u));
    EXPECT_EQ(statistic("number_of_sunsets", 1), "0 1 4 " + bytes(0u));
    EXPECT_EQ(statistic(results, 0), "100000004 0 0 null");
    EXPECT_EQ(statistic(results, 5), "100000004 0 0 null");

    camera->setFault("getStatistics", "error");
    EXPECT_EQ(statistic(results, 1), "100000004 0 0 null");
    EXPECT_THAT(redis().logMessages(), Contains("Invalid request key provided: number_of_results"));
}

TEST_F(DeviceTest, ApplicationListKeepsTheFirst32IndicesAndZeroesUnusedSlots)
{
    start({}, 40);
    std::vector<int32_t> expected = {0, 32, 1};
    for (int32_t index = 1; index <= 32; ++index)
        expected.push_back(index);
    EXPECT_EQ(run<VORNGetApplicationList>(nullptr, 140), expected);

    // The switch answers the service's own code, as it stands.
    EXPECT_EQ(run<VORNSetApplication>(int32_t{3})[0], 0);
    EXPECT_EQ(run<VORNSetApplication>(int32_t{41})[0], 100000004);
    // An "Index" of another integer type counts by its low 32 bits, here a 64-bit one.
    camera->setApplications(2);
    camera->setFault("getApplicationList", "wideindex");
    EXPECT_EQ(run<VORNGetApplicationList>(nullptr, 20), (std::vector<int32_t>{0, 2, 3, 1, 2}));
    camera->setFault("getApplicationList", "none");
    // No applications: the active one is still read, and no slot is left to stale heap contents.
    camera->setApplications(0);
    expected = {0, 0, 3};
    expected.resize(35, 0);
    EXPECT_EQ(run<VORNGetApplicationList>(nullptr, 140), expected);
}

// The I/O commands choose pins from the I/O board's identification EEPROM (fake at24 devices).
using IOPinsOnDevices = DeviceTest;

TEST_F(IOPinsOnDevices, MapTheIOsToThePinLayoutOfTheFittedBoard)
{
    KV_RUN_UNDER_UMOCKDEV();
    std::tuple<char const*, std::vector<uint8_t>, std::array<int, 3>> const boards[] = {
        {"three ports, I/O ", eepromRecord('A', "A31"), {3, 5, 4}},
        {"two ports, I/O ", eepromRecord('A', "A22"), {0, 1, 8}},
        {"unknown board, I/O ", eepromRecord('A', "A99"), {8, 8, 8}},
        {"unreadable record, I/O ", eepromRecord('A', "A31", "", "04"), {8, 8, 8}}};
    UmockdevTestbed testbed;
    for (auto const& [name, record, pins] : boards) {
        testbed.removeAll();
        testbed.addEeprom("2-0050", record);
        for (int io = -1; io <= 4; ++io)
            EXPECT_EQ(IOMapping::getIOPin(io), io >= 1 && io <= 3 ? pins[io - 1] : 8) << name << io;
    }
}

TEST_F(IOPinsOnDevices, IOCommandsReadAnyPinAndWriteOnlyPinsInOutputMode)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-0050", eepromRecord('A', "A31"));
    start();
    camera->setPin(5, 14, 1);
    // I/O 2 is pin 5; I/O 3 is pin 4, wired as an input.
    EXPECT_EQ(run<VORNGetIO>(int32_t{2}, 12), (std::vector<int32_t>{0, 2, 1}));
    EXPECT_EQ(run<VORNSetIO>(std::array<int32_t, 2>{3, 1})[0], VornStatus::PinNotInOutputMode);
    EXPECT_EQ(camera->pin(4), std::make_pair(13, 0));
    EXPECT_EQ(run<VORNSetIO>(std::array<int32_t, 2>{1, 1})[0], 0);
    EXPECT_EQ(camera->pin(3), std::make_pair(14, 1));

    camera->setFault("*", "error");
    EXPECT_EQ(run<VORNGetIO>(int32_t{2}, 12), (std::vector<int32_t>{VornStatus::DeviceFailure, 2, 0}));
    EXPECT_EQ(run<VORNSetIO>(std::array<int32_t, 2>{1, 0})[0], VornStatus::DeviceFailure);
}

} // namespace
} // namespace orv::test
