// The frame queue between the camera and the plug-in: frames published as files into one directory,
// handed out by key from a read-only mapping, claimed by exactly one consuming client or seen once
// by an observer, oldest first, with the publisher keeping only the newest few.
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "PluginChild.h"
#include "ResourceUsage.h"
#include "TempDir.h"
#include "resultsync/FrameClient.h"
#include "resultsync/FrameFormat.h"
#include "resultsync/FramePublisher.h"

using orv::resultsync::Frame;
using orv::resultsync::FrameClient;
using orv::resultsync::FramePublisher;

class FrameQueueTest : public ::testing::Test
{
protected:
    bool publish(std::string const& id) { return publisher.publish(id, {{"k", "p", 1}}); }
    // The ids that a new client takes, oldest first, until none is left.
    std::string takeAll(bool consume)
    {
        FrameClient client(consume, dir.path());
        std::string ids;
        for (std::unique_ptr<Frame> frame; ids.size() < 100 && (frame = client.waitForFrame(0));)
            ids += frame->getId() + " ";
        return ids;
    }
    long files() const { return std::distance(std::filesystem::directory_iterator(dir.path()), {}); }

    orv::test::TempDir dir{"kv-frames"};
    FramePublisher publisher{8, dir.path()};
};

TEST_F(FrameQueueTest, WakesAWaitingClientAndHandsOutEveryItemByKeyInPlaceAndAligned)
{
    std::string const missing = dir.file("not/yet"); // made by whichever side comes first
    FrameClient client(true, missing);
    std::vector<uint16_t> pixels(1000);
    std::iota(pixels.begin(), pixels.end(), 7);
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        FramePublisher(4, missing).publish("42", {{"odd", "abc", 3}, {"image", pixels.data(), 2000}});
    });
    std::unique_ptr<Frame> frame = client.waitForFrame(10000);
    late.join();
    ASSERT_EQ(frame ? frame->getId() : "none", "42");
    uint32_t size = 0;
    void const* data = frame->getData("image", &size);
    ASSERT_EQ(size, 2000u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % 64, 0u);
    EXPECT_EQ(memcmp(data, pixels.data(), size), 0);
    EXPECT_TRUE(frame->getData("Image", &size) == nullptr && size == 0);

    // A single item's data begins where a second index entry would: it is never read as one.
    orv::resultsync::FrameFormat::IndexEntry const ghost{"ghost", 0, 8};
    ASSERT_TRUE(publisher.publish("43", {{"entry", &ghost, sizeof ghost}}));
    std::unique_ptr<Frame> const single = FrameClient(true, dir.path()).waitForFrame(0);
    EXPECT_TRUE(single && single->getData("ghost", &size) == nullptr);
}

TEST_F(FrameQueueTest, ConsumersClaimEachFrameOnceOldestFirstWhileAnObserverLeavesThemInPlace)
{
    for (char const* id : {"7", "8", "9"})
        ASSERT_TRUE(publish(id));
    EXPECT_EQ(takeAll(false), "7 8 9 ");

    {
        FrameClient one(true, dir.path()), other(true, dir.path());
        std::unique_ptr<Frame> a = one.waitForFrame(0), b = other.waitForFrame(0), c = one.waitForFrame(0);
        EXPECT_EQ(a && b && c ? a->getId() + b->getId() + c->getId() : "one missing", "789");
        EXPECT_FALSE(other.waitForFrame(0));
        EXPECT_EQ(files(), 3);
    } // deleting a claimed frame removes it
    EXPECT_EQ(files(), 0);
}

TEST_F(FrameQueueTest, KeepsTheNewestFramesInOrderAcrossARestartAndRemovesEverythingOnRequest)
{
    for (char const* id : {"1", "2", "3", "4", "5", "1"}) // each by a new publisher
        ASSERT_TRUE(FramePublisher(3, dir.path()).publish(id, {{"k", "p", 1}}));
    EXPECT_EQ(takeAll(true), "4 5 1 ");

    FramePublisher none(0, dir.path()); // still keeps the newest frame
    ASSERT_TRUE(none.publish("2", {{"k", "p", 1}}));
    ASSERT_TRUE(none.publish("3", {{"k", "p", 1}}));
    std::ofstream(dir.file(".writing-1-9")) << "left by a writer that died";
    ASSERT_EQ(files(), 2);
    none.removeAll();
    EXPECT_EQ(files(), 0);

    // A folder that cannot be made is said once, at the start; one that can is made and watched silently.
    std::ofstream(dir.file("plain")) << "a file, not a folder";
    testing::internal::CaptureStderr();
    FramePublisher(1, dir.file("made/on/demand"));
    FrameClient(false, dir.file("made/on/demand"));
    FramePublisher(1, dir.file("plain/frames"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "FramePublisher: cannot create " + dir.file("plain/frames") + ": Not a directory\n");
}

TEST_F(FrameQueueTest, SkipsAndRemovesFrameFilesThatAreNotSoundAndRefusesWhatDoesNotFit)
{
    ASSERT_TRUE(publisher.publish("1", {{"k", std::string(1000, 'x').data(), 1000}}));
    // The first frame's item cut off, and an older file that is no frame at all.
    std::filesystem::resize_file(std::filesystem::directory_iterator(dir.path())->path(), 200);
    std::ofstream(dir.file("frame-00000000000000000000-0.kvf")) << std::string(100, 'x');
    // Names that only look like a frame's are left alone: no id, a short or lettered sequence, no dash.
    for (char const* name : {"frame-00000000000000000001-.kvf", "frame-0000000000000000001-1.kvf",
                             "frame-0000000000000000000x-1.kvf", "frame-00000000000000000001_1.kvf"})
        std::ofstream(dir.file(name)) << "no frame";
    for (std::string const id : {"", "a/b", "12345678901234567890123456789012"})
        EXPECT_FALSE(publish(id)) << id;
    EXPECT_FALSE(publisher.publish("3", {{std::string(64, 'k'), "x", 1}}));
    EXPECT_FALSE(publisher.publish("3", {{"k", "x", 1}, {"", "x", 1}}));
    ASSERT_TRUE(publisher.publish(std::string(31, '2'), {{std::string(63, 'k'), "x", 1}}));

    EXPECT_EQ(takeAll(false), std::string(31, '2') + " ");
    EXPECT_EQ(files(), 7); // an observer leaves the frames it cannot read to the consumers
    EXPECT_EQ(takeAll(true), std::string(31, '2') + " ");
    EXPECT_EQ(files(), 4);
}

TEST_F(FrameQueueTest, ReclaimsWhatAHostOrAWriterThatDiedLeftButNeverAFrameStillHeld)
{
    ASSERT_TRUE(publish("1"));
    ASSERT_TRUE(publish("2"));
    std::unique_ptr<Frame> const held = FrameClient(true, dir.path()).waitForFrame(0);
    ASSERT_TRUE(held);
    pid_t const dead = fork();
    if (dead == 0)
        _exit(0);
    waitpid(dead, nullptr, 0);
    auto abandon = [&] {
        std::ofstream(dir.file("taken-00000000000000000000-0.kvf")) << "claimed by a host that died";
        std::ofstream(dir.file(".writing-" + std::to_string(dead) + "-7")) << "half a frame";
    };
    abandon();
    ASSERT_TRUE(publish("3")); // the publisher tidies up
    EXPECT_EQ(files(), 3);     // the held frame and the two published ones
    abandon();
    EXPECT_EQ(takeAll(true), "2 3 "); // and so does a consuming client
    EXPECT_EQ(files(), 1);
    EXPECT_EQ(held->getId(), "1");
}

TEST_F(FrameQueueTest, ServesAHostWithoutStandardInputAndLeavesNothingBehindRoundAfterRound)
{
    orv::test::ChildResult const child = orv::test::runInChild([&](orv::test::LoadedPlugin& parent) {
        close(STDIN_FILENO); // as in a daemon: 0 is then the first descriptor a watch or a file gets
        std::string report;
        {
            FrameClient waiting(true, dir.path());
            std::thread late([&] {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                publish("1");
            });
            auto const start = std::chrono::steady_clock::now();
            std::unique_ptr<Frame> const frame = waiting.waitForFrame(10000);
            late.join();
            bool const woken = std::chrono::steady_clock::now() - start < std::chrono::seconds(5);
            report += (frame ? frame->getId() : "none") + (woken ? " woken, " : " at the time-out, ");
        }
        auto round = [&](int i) {
            std::string const id = std::to_string(i);
            int const held = open("/dev/null", O_RDONLY); // 0 while the clients set up their watches,
            FrameClient observer(false, dir.path()), consumer(true, dir.path());
            close(held); // then free again for the files they open
            std::ofstream(dir.file("taken-00000000000000000000-0.kvf")) << "claimed by a host that died";
            std::ofstream(dir.file("frame-00000000000000000000-0.kvf")) << "shorter than a frame's header";
            publish(id);
            std::unique_ptr<Frame> const seen = observer.waitForFrame(0), taken = consumer.waitForFrame(0);
            if (!seen || !taken || seen->getId() != id || taken->getId() != id)
                report += "lost " + id + ", ";
        };
        for (int i = 2; i < 12; ++i)
            round(i);
        orv::test::ResourceUsage const before = orv::test::ResourceUsage::now();
        for (int i = 12; i < 112; ++i)
            round(i);
        orv::test::ResourceUsage const growth = orv::test::ResourceUsage::now() - before;
        report += "descriptors +" + std::to_string(growth.descriptors) + ", mappings +" +
                  std::to_string(growth.mappings) + (growth.heap < 2048 ? ", heap flat" : ", heap grew") +
                  (fcntl(STDIN_FILENO, F_GETFD) < 0 ? ", 0 free" : ", 0 still open");
        parent.send(report);
        return 0;
    });
    EXPECT_EQ(child.output, "1 woken, descriptors +0, mappings +0, heap flat, 0 free") << child.errors;
    EXPECT_EQ(files(), 0);
}
