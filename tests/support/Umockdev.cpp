#include "Umockdev.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <umockdev.h>

namespace orv::test {

bool underUmockdev()
{
    char const* preload = getenv("LD_PRELOAD");
    return preload != nullptr && strstr(preload, "umockdev-preload") != nullptr;
}

bool umockdevAvailable()
{
    return system("command -v umockdev-wrapper >/dev/null 2>&1") == 0;
}

int rerunCurrentTestUnderUmockdev()
{
    ::testing::TestInfo const* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string const filter = std::string("--gtest_filter=") + info->test_suite_name() + "." + info->name();
    char self[4096];
    ssize_t const length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return -1;
    self[length] = '\0';
    pid_t const pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // umockdev's preload comes before AddressSanitizer's runtime; in a sanitizer build that
        // order is harmless for these tests, so let it pass (ignored by an ordinary build).
        std::string asan = getenv("ASAN_OPTIONS") != nullptr ? getenv("ASAN_OPTIONS") : "";
        setenv("ASAN_OPTIONS", (asan.empty() ? asan : asan + ":").append("verify_asan_link_order=0").c_str(),
               1);
        execlp("umockdev-wrapper", "umockdev-wrapper", self, filter.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

UmockdevTestbed::UmockdevTestbed() : m_testbed(umockdev_testbed_new())
{
    if (m_testbed == nullptr)
        throw std::runtime_error("umockdev testbed not created");
}

UmockdevTestbed::~UmockdevTestbed()
{
    g_object_unref(m_testbed);
}

void UmockdevTestbed::addEeprom(std::string const& name, std::vector<uint8_t> const& contents,
                                std::string const& driver)
{
    gchar* path = umockdev_testbed_add_device(m_testbed, "i2c", name.c_str(), nullptr, nullptr, nullptr);
    if (path == nullptr)
        throw std::runtime_error("umockdev: cannot add " + name);
    umockdev_testbed_set_attribute_binary(m_testbed, path, "eeprom", const_cast<guint8*>(contents.data()),
                                          contents.size());
    std::string const target = "../../bus/i2c/drivers/" + driver;
    umockdev_testbed_set_attribute_link(m_testbed, path, "driver", target.c_str());
    m_devices.push_back(path);
    g_free(path);
}

void UmockdevTestbed::removeAll()
{
    for (std::string const& path : m_devices)
        umockdev_testbed_remove_device(m_testbed, path.c_str());
    m_devices.clear();
}

} // namespace orv::test
