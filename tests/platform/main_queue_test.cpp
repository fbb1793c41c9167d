#include "platform/main_queue.h"
#include "platform/serial_queue.h"

#include <gtest/gtest.h>

#include <future>
#include <numeric>
#include <thread>
#include <vector>

using tasket::platform::MainQueue;
using tasket::platform::SerialQueue;

TEST(MainQueue, RunsTasksInOrderIncludingNestedPostsUntilQuit) {
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

    q.post([&] { order.push_back(4); });
    q.post([&] { q.quit(); });
    q.run();
    EXPECT_EQ(order.size(), 4u);
}

TEST(MainQueue, RunUntilWaitsForWorkFromOtherThreads) {
    auto& q = MainQueue::shared();
    bool done = false;
    std::thread t([&] { q.post([&] { done = true; }); });
    EXPECT_TRUE(q.runUntil([&] { return done; }));
    t.join();
    EXPECT_FALSE(q.runUntil([] { return false; }, std::chrono::milliseconds(20)));
}

TEST(SerialQueue, RunsInOrderOnOneThreadAndSyncIsReentrant) {
    SerialQueue queue("test");
    std::vector<int> order, expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    std::thread::id worker;
    for (const int i : expected)
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
    EXPECT_EQ(order, expected);
    EXPECT_NE(worker, std::this_thread::get_id());
}

// Destroyed by its own task, it still runs what was queued behind that task.
TEST(SerialQueue, MayBeDestroyedByItsOwnTaskAndStillRunsQueuedWork) {
    auto* queue = new SerialQueue("self");
    std::promise<void> done, queued;
    queue->async([&, bothQueued = queued.get_future().share()] {
        bothQueued.wait();
        delete queue;
    });
    queue->async([&] { done.set_value(); });
    queued.set_value();
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
}
