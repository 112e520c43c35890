// What the camera's other parts may do to the plug-in mid-session: Redis going away and coming
// back, a device service killed in a call, a frame writer killed mid-frame or out of space, a host
// that dies holding a frame. Each time every request still gets its answer and nothing is lost.
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "HostSession.h"
#include "RedisServer.h"
#include "Require.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "resultsync/FrameClient.h"
#include "resultsync/FramePublisher.h"

using namespace orv;
using namespace orv::test;
using ::testing::Contains;
using ::testing::HasSubstr;

namespace {

// Acquires the oldest waiting result, asks for an image and a formatted output, and frees it.
void cycle(Host& host, char const* label)
{
    std::unique_ptr<resultsync::Frame> const next = resultsync::FrameClient(false).waitForFrame(2000);
    std::string const id = next ? next->getId() : "none";
    static std::string const format = R"({"format":{"elements":[{"type":"uint8","id":"activeapp_id"}]}})";
    FormatResultsRequest request{};
    strncpy(request.resultId, id.c_str(), sizeof request.resultId - 1);
    request.json = format.data();
    request.jsonLength = uint32_t(format.size());
    auto const image = query("distance_image", id);
    host.ask(label, 4, id.c_str())
        .ask("image", 2, &image)
        .ask("format", 26, &request)
        .ask("free", 5, id.c_str());
}

class Faults : public ::testing::Test
{
protected:
    std::string flag(char const* name) const { return m_dir.file(name); }

    TempDir m_dir{"kv-faults"};
    RedisEnvironment m_redis;
};

TEST_F(Faults, RedisGoingAwayAndComingBackCostsNoAnswerAndTheCameraPublishesAgain)
{
    CameraSimOptions freeRunning; // ten results a second, none dropped while the test runs
    freeRunning.rate = 10;
    freeRunning.ring = 200;
    CameraSim camera(freeRunning);
    for (int i = 0; i < 500 && camera.frameFiles().size() < 3; ++i) // one result for each part below
        usleep(10000);
    PluginChild plugin([&](LoadedPlugin& loaded) {
        Host host(loaded);
        cycle(host, "before");
        raiseFlag(flag("down"));
        waitForFlag(flag("stopped"));
        cycle(host, "down");
        raiseFlag(flag("up"));
        waitForFlag(flag("started"));
        cycle(host, "after");
        host.send();
        return 0;
    });
    ASSERT_TRUE(waitForFlag(flag("down")));
    m_redis.cache().stop();
    EXPECT_ANY_THROW(camera.trigger()); // a result the camera cannot store is not published
    raiseFlag(flag("stopped"));
    ASSERT_TRUE(waitForFlag(flag("up")));
    m_redis.cache().start();
    raiseFlag(flag("started"));
    ChildResult const child = plugin.wait();
    ASSERT_EQ(child.exitCode, 0) << child.errors;
    std::string const served = "=0/0 image=3/0 format=0/100000003 free=0/0 ";
    EXPECT_EQ(child.output, "before" + served + "down" + served + "after" + served);
    EXPECT_THAT(child.errors, HasSubstr("redisPushLog: failed with err"));
    EXPECT_THAT(child.errors, HasSubstr("REDIS NOT CONNECTED !n"));
    // The camera said why results went missing, connected again, and stores results again.
    EXPECT_THAT(camera.errors(), HasSubstr("not published: "));
    std::string id;
    EXPECT_NO_THROW(id = camera.trigger()) << camera.errors();
    EXPECT_TRUE(m_redis.cache().hget("result_" + id, "ModelResult").has_value());
}

TEST_F(Faults, ADeviceServiceKilledInTheMiddleOfACallFailsThatCallAtOnce)
{
    DBusDaemon bus;
    CameraSim camera({0, "176x132", 8, 3, {"vornTrigger=slow:20000"}, ""});
    PluginChild plugin([&](LoadedPlugin& loaded) {
        Host host(loaded);
        raiseFlag(flag("calling"));
        host.ask("trigger", 9, nullptr).ask("again", 9, nullptr).ask("vendor", 20, "vendor").send();
        return 0;
    });
    ASSERT_TRUE(waitForFlag(flag("calling")));
    usleep(300000);
    kill(camera.pid(), SIGKILL);
    ChildResult const child = plugin.wait();
    EXPECT_EQ(child.output, "trigger=0/100000002 again=0/100000002 vendor=21/0 ");
    EXPECT_THAT(m_redis.cache().logMessages("ERROR"),
                Contains(HasSubstr("org.freedesktop.DBus.Error.NoReply")));
}

TEST_F(Faults, AFrameWriterKilledMidFrameOrOutOfSpaceNeverHandsOutHalfAFrame)
{
    // Killed at a random moment while it writes frames of 8 MB: every frame that appears is whole.
    std::string const frames = m_dir.file("frames");
    std::vector<char> pattern(8 << 20);
    for (size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = char(i * 7);
    pid_t const writer = fork();
    if (writer == 0) {
        resultsync::FramePublisher publisher(4, frames);
        for (int id = 1;; ++id)
            publisher.publish(std::to_string(id), {{"data", pattern.data(), uint32_t(pattern.size())}});
    }
    usleep(150000);
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    resultsync::FrameClient client(true, frames);
    for (std::unique_ptr<resultsync::Frame> frame; (frame = client.waitForFrame(0));) {
        uint32_t size = 0;
        auto const* data = static_cast<char const*>(frame->getData("data", &size));
        EXPECT_TRUE(size == pattern.size() && memcmp(data, pattern.data(), size) == 0) << frame->getId();
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(frames), {}), 0) << "left in writing";

    // Out of space: the camera's frame folder on a tmpfs too small for one frame.
    pid_t const confined = fork();
    if (confined == 0) {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            _exit(99);
        CameraSim camera;
        if (mount("tmpfs", camera.frameDir().c_str(), "tmpfs", 0, "size=64k") != 0)
            _exit(98);
        bool const published = [&] {
            try {
                camera.trigger();
                return true;
            } catch (...) {
                return false;
            }
        }();
        ChildResult const child = runWithPlugin([](LoadedPlugin& plugin) {
            Host(plugin).ask("acquire", 4, "1").send();
            return 0;
        });
        bool const clean =
            camera.frameFiles().empty() && camera.errors().find("No space left") != std::string::npos;
        _exit(!published && clean && child.output == "acquire=0/100000003 " ? 0 : 1);
    }
    int status = 0;
    waitpid(confined, &status, 0);
    KV_REQUIRE(WEXITSTATUS(status) < 98, "mount namespaces need root");
    EXPECT_EQ(WEXITSTATUS(status), 0)
        << "a camera out of space published something, or acquire answered otherwise";
}

TEST_F(Faults, AHostThatDiesHoldingAFrameDoesNotKeepItOnTmpfs)
{
    CameraSim camera;
    std::string const id = camera.trigger();
    ChildResult const child = runWithPlugin([&](LoadedPlugin& plugin) {
        Host(plugin).ask("acquire", 4, id.c_str());
        raise(SIGKILL);
        return 0;
    });
    ASSERT_EQ(child.signal, SIGKILL);
    ASSERT_THAT(camera.frameFiles(), Contains(HasSubstr("taken-")));
    camera.trigger(); // the camera's next frame tidies the folder
    EXPECT_THAT(camera.frameFiles(), ::testing::Not(Contains(HasSubstr("taken-"))));
}

} // namespace
