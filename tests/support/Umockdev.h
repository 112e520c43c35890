// Fake sysfs devices for tests of the identification EEPROMs. libudev sees them only inside
// umockdev-wrapper, so a test that needs them re-runs itself there (KV_RUN_UNDER_UMOCKDEV).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace orv::test {

bool underUmockdev();
bool umockdevAvailable();
// Runs the current test alone in a child under umockdev-wrapper; its exit code.
int rerunCurrentTestUnderUmockdev();

class UmockdevTestbed
{
public:
    UmockdevTestbed();
    ~UmockdevTestbed();
    UmockdevTestbed(UmockdevTestbed const&) = delete;
    UmockdevTestbed& operator=(UmockdevTestbed const&) = delete;

    // An I2C device `name` (e.g. "2-0053") bound to `driver` with an "eeprom" attribute.
    void addEeprom(std::string const& name, std::vector<uint8_t> const& contents,
                   std::string const& driver = "at24");
    void removeAll();

private:
    UMockdevTestbed* m_testbed;
    std::vector<std::string> m_devices;
};

} // namespace orv::test

// In a test body: outside the wrapper, re-runs the test inside it and passes on its result.
#define KV_RUN_UNDER_UMOCKDEV()                                                                              \
    do {                                                                                                     \
        if (!::orv::test::underUmockdev()) {                                                                 \
            KV_REQUIRE(::orv::test::umockdevAvailable(), "umockdev-wrapper is not installed");               \
            ASSERT_EQ(::orv::test::rerunCurrentTestUnderUmockdev(), 0) << "the test failed under umockdev";  \
            return;                                                                                          \
        }                                                                                                    \
    } while (0)
