#include "platform/main_queue.h"
#include "platform/serial_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

using tasket::platform::MainQueue;
using tasket::platform::SerialQueue;

TEST(MainQueue, PumpRunsTasksInOrderIncludingNestedPosts) {
    auto& q = MainQueue::shared();
    q.pump();
    std::vector<int> order;
    q.post([&] {
        order.push_back(1);
        q.post([&] { order.push_back(3); });
    });
    q.post([&] { order.push_back(2); });
    EXPECT_EQ(q.pump(), 3u);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(MainQueue, RunUntilWaitsForWorkFromOtherThreads) {
    auto& q = MainQueue::shared();
    bool done = false;
    std::thread t([&] { q.post([&] { done = true; }); });
    EXPECT_TRUE(q.runUntil([&] { return done; }));
    t.join();
    EXPECT_FALSE(q.runUntil([] { return false; }, std::chrono::milliseconds(20)));
}

TEST(MainQueue, RunReturnsAfterQuit) {
    auto& q = MainQueue::shared();
    int ran = 0;
    q.post([&] { ++ran; });
    q.post([&] { q.quit(); });
    q.run();
    EXPECT_EQ(ran, 1);
}

TEST(SerialQueue, RunsInOrderOnOneThreadAndSyncIsReentrant) {
    SerialQueue queue("test");
    std::vector<int> order;
    std::thread::id worker;
    for (int i = 0; i < 100; ++i)
        queue.async([&, i] {
            order.push_back(i);
            worker = std::this_thread::get_id();
        });
    bool nested = false;
    queue.sync([&] {
        EXPECT_TRUE(queue.isCurrent());
        queue.sync([&] { nested = true; });
    });
    EXPECT_TRUE(nested);
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[i], i);
    EXPECT_NE(worker, std::this_thread::get_id());
}

// Destroyed by its own task, it still runs what was queued behind that task.
TEST(SerialQueue, MayBeDestroyedByItsOwnTaskAndStillRunsQueuedWork) {
    std::atomic<bool> ranAfter{false};
    auto* queue = new SerialQueue("self");
    std::promise<void> done, queued;
    auto bothQueued = queued.get_future();
    queue->async([&] {
        bothQueued.wait();
        delete queue;
    });
    queue->async([&] {
        ranAfter = true;
        done.set_value();
    });
    queued.set_value();
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_TRUE(ranAfter);
}
