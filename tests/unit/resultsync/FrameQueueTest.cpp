#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <set>
#include <thread>

#include "TempDir.h"
#include "resultsync/FrameClient.h"
#include "resultsync/FramePublisher.h"

using orv::resultsync::Frame;
using orv::resultsync::FrameClient;
using orv::resultsync::FramePublisher;

namespace {

std::vector<std::string> filesIn(std::string const& dir)
{
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] != '.')
            names.push_back(e->d_name);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

class FrameQueueTest : public ::testing::Test
{
protected:
    bool publish(FramePublisher& publisher, std::string const& id, std::string const& payload = "p")
    {
        return publisher.publish(id, {{"payload", payload.data(), static_cast<uint32_t>(payload.size())}});
    }
    std::string idOf(std::unique_ptr<Frame> const& frame) { return frame ? frame->getId() : "(none)"; }

    orv::test::TempDir m_dir{"kv-frames"};
};

TEST_F(FrameQueueTest, HandsOutEveryItemByKeyAlignedInsideTheMapping)
{
    FramePublisher publisher(4, m_dir.path());
    std::vector<uint16_t> pixels(176 * 132);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<uint16_t>(i * 7);
    std::string const odd = "abc";
    ASSERT_TRUE(publisher.publish("42", {{"odd", odd.data(), 3},
                                         {"distance_image", pixels.data(), uint32_t(pixels.size() * 2)},
                                         {"empty", nullptr, 0}}));

    FrameClient client(true, m_dir.path());
    std::unique_ptr<Frame> frame = client.waitForFrame(0);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->getId(), "42");

    uint32_t size = 99;
    void const* data = frame->getData("distance_image", &size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(size, pixels.size() * 2);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % 64, 0u);
    EXPECT_EQ(memcmp(data, pixels.data(), size), 0);
    auto const* text = static_cast<char const*>(frame->getData("odd", &size));
    EXPECT_EQ(std::string(text, size), "abc");
    EXPECT_NE(frame->getData("empty", &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(frame->getData("Distance_image", &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_NE(frame->getData("odd", nullptr), nullptr);
}

TEST_F(FrameQueueTest, ConsumingClientsTakeEachFrameOnceOldestFirstAndDeletionRemovesIt)
{
    FramePublisher publisher(8, m_dir.path());
    for (std::string id : {"7", "8", "9"})
        ASSERT_TRUE(publish(publisher, id));

    FrameClient first(true, m_dir.path());
    FrameClient second(true, m_dir.path());
    std::unique_ptr<Frame> a = first.waitForFrame(0);
    std::unique_ptr<Frame> b = second.waitForFrame(0);
    std::unique_ptr<Frame> c = first.waitForFrame(0);
    EXPECT_EQ(idOf(a) + idOf(b) + idOf(c), "789");
    EXPECT_FALSE(second.waitForFrame(0));

    EXPECT_EQ(filesIn(m_dir.path()).size(), 3u);
    a.reset();
    b.reset();
    c.reset();
    EXPECT_TRUE(filesIn(m_dir.path()).empty());
}

TEST_F(FrameQueueTest, ObservingClientSeesEachFrameOnceAndLeavesItInPlace)
{
    FramePublisher publisher(8, m_dir.path());
    ASSERT_TRUE(publish(publisher, "1"));
    ASSERT_TRUE(publish(publisher, "2"));

    FrameClient observer(false, m_dir.path());
    EXPECT_EQ(idOf(observer.waitForFrame(0)), "1");
    EXPECT_EQ(idOf(observer.waitForFrame(0)), "2");
    EXPECT_FALSE(observer.waitForFrame(0));
    EXPECT_EQ(filesIn(m_dir.path()).size(), 2u);

    FrameClient consumer(true, m_dir.path());
    EXPECT_EQ(idOf(consumer.waitForFrame(0)), "1");
}

TEST_F(FrameQueueTest, KeepsOnlyTheNewestFramesAndANewPublisherContinuesTheOrder)
{
    {
        FramePublisher publisher(3, m_dir.path());
        for (int id = 1; id <= 5; ++id)
            ASSERT_TRUE(publish(publisher, std::to_string(id)));
    }
    FramePublisher restarted(3, m_dir.path());
    ASSERT_TRUE(publish(restarted, "1"));

    FrameClient client(true, m_dir.path());
    std::string order;
    while (std::unique_ptr<Frame> frame = client.waitForFrame(0))
        order += frame->getId() + " ";
    EXPECT_EQ(order, "4 5 1 ");
}

TEST_F(FrameQueueTest, WaitEndsWhenAFrameIsPublishedAndTimesOutOtherwise)
{
    FramePublisher publisher(4, m_dir.path());
    FrameClient client(true, m_dir.path());
    using Clock = std::chrono::steady_clock;

    auto start = Clock::now();
    EXPECT_FALSE(client.waitForFrame(150));
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    EXPECT_GE(waited, 145);
    EXPECT_LT(waited, 1000);

    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        publish(publisher, "11");
    });
    start = Clock::now();
    std::unique_ptr<Frame> frame = client.waitForFrame(10000);
    waited = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    late.join();
    EXPECT_EQ(idOf(frame), "11");
    EXPECT_LT(waited, 5000);
}

TEST_F(FrameQueueTest, SkipsAndRemovesAFrameFileThatIsNotSound)
{
    FramePublisher publisher(4, m_dir.path());
    ASSERT_TRUE(publish(publisher, "1"));
    std::string const name = filesIn(m_dir.path()).at(0);
    std::ofstream(m_dir.file(name), std::ios::binary | std::ios::trunc)
        << "not a frame at all, just text......"
           "......................";
    ASSERT_TRUE(publish(publisher, "2"));

    FrameClient client(true, m_dir.path());
    EXPECT_EQ(idOf(client.waitForFrame(0)), "2");
    EXPECT_TRUE(filesIn(m_dir.path()).empty());
}

TEST_F(FrameQueueTest, RefusesIdsAndKeysThatDoNotFitAndPublishesConcurrentlyWithoutLoss)
{
    FramePublisher publisher(1000, m_dir.path());
    EXPECT_FALSE(publish(publisher, ""));
    EXPECT_FALSE(publish(publisher, "a/b"));
    EXPECT_FALSE(publish(publisher, std::string(32, '1')));
    EXPECT_FALSE(publisher.publish("1", {{std::string(64, 'k'), "x", 1}}));
    EXPECT_TRUE(filesIn(m_dir.path()).empty());

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i)
                publish(publisher, std::to_string(t * 100 + i));
        });
    for (auto& thread : threads)
        thread.join();

    FrameClient client(true, m_dir.path());
    std::set<std::string> ids;
    while (std::unique_ptr<Frame> frame = client.waitForFrame(0))
        ids.insert(frame->getId());
    EXPECT_EQ(ids.size(), 100u);
}

} // namespace
