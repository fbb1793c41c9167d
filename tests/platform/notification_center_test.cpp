#include "platform/notification_center.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using tasket::platform::Notification;
using tasket::platform::NotificationCenter;
using tasket::platform::ObserverToken;

TEST(NotificationCenter, DeliversByNameAndSenderOnPostingThread) {
    NotificationCenter center;
    int a = 0, b = 0;
    std::vector<std::string> seen;
    std::thread::id deliveredOn;
    auto any = center.addObserver("N", nullptr, [&](const Notification& n) {
        seen.push_back(std::any_cast<std::string>(n.userInfo));
        deliveredOn = std::this_thread::get_id();
    });
    auto onlyA = center.addObserver("N", &a, [&](const Notification&) { seen.push_back("fromA"); });
    auto every = center.addObserver("", nullptr,
                                    [&](const Notification& n) { seen.push_back("*" + n.name); });

    std::thread poster([&] { center.post("N", &b, std::string("payload")); });
    poster.join();
    EXPECT_NE(deliveredOn, std::this_thread::get_id());
    center.post("N", &a, std::string("x"));
    center.post("Other");
    EXPECT_EQ(seen, (std::vector<std::string>{"payload", "*N", "x", "fromA", "*N", "*Other"}));
}

// A token unregisters when destroyed or reset, from a handler too: the
// first handler ends itself and the second before the second is called.
TEST(NotificationCenter, TokenUnregistersWhenDestroyedOrResetEvenByAHandler) {
    NotificationCenter center;
    int count = 0;
    {
        auto token = center.addObserver("N", nullptr, [&](const Notification&) { ++count; });
        ObserverToken moved = std::move(token);
        EXPECT_FALSE(token.isActive());
        center.post("N");
    }
    center.post("N");
    EXPECT_EQ(count, 1);

    ObserverToken first, second;
    first = center.addObserver("N", nullptr, [&](const Notification&) {
        second.reset();
        first.reset();
    });
    second = center.addObserver("N", nullptr, [&](const Notification&) { ++count; });
    center.post("N");
    center.post("N");
    EXPECT_EQ(count, 1);
}

TEST(NotificationCenter, ConcurrentPostsAndRemovalsNeverCallARemovedHandler) {
    NotificationCenter center;
    std::atomic<int> calls{0};
    std::atomic<bool> removed{false}, callAfterRemoval{false};
    auto token = center.addObserver("N", nullptr, [&](const Notification&) {
        if (removed)
            callAfterRemoval = true;
        ++calls;
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t)
        posters.emplace_back([&] {
            for (int i = 0; i < 2000; ++i)
                center.post("N");
        });
    while (calls < 100)
        std::this_thread::yield();
    token.reset();
    removed = true;
    for (auto& p : posters)
        p.join();
    EXPECT_FALSE(callAfterRemoval);
}
