#include "platform/notification_center.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using tasket::platform::NotificationCenter;
using tasket::platform::NotificationName;
using tasket::platform::ObserverToken;

namespace {

constexpr NotificationName<std::string> kText{"N"};
constexpr NotificationName<int> kNumberUnderTheSameName{"N"};
constexpr NotificationName<void> kBare{"Bare"};

// A handler for another payload type does not compile.
template <class Handler>
concept ObservesText = requires(NotificationCenter& c, Handler h) {
    c.addObserver(kText, nullptr, h);
};
static_assert(ObservesText<void (*)(const std::string&, const void*)>);
static_assert(!ObservesText<void (*)(const int&, const void*)>);

} // namespace

TEST(NotificationCenter, DeliversByNamePayloadTypeAndSenderOnPostingThread) {
    NotificationCenter center;
    int a = 0, b = 0;
    std::vector<std::string> seen;
    std::thread::id deliveredOn;
    auto any = center.addObserver(kText, nullptr, [&](const std::string& text, const void*) {
        seen.push_back(text);
        deliveredOn = std::this_thread::get_id();
    });
    auto onlyA = center.addObserver(
        kText, &a, [&](const std::string&, const void*) { seen.push_back("fromA"); });
    auto number =
        center.addObserver(kNumberUnderTheSameName, nullptr,
                           [&](const int& n, const void*) { seen.push_back(std::to_string(n)); });
    auto bare = center.addObserver(kBare, nullptr, [&](const void* sender) {
        seen.push_back(sender == &b ? "bare from b" : "bare");
    });

    std::thread poster([&] { center.post(kText, &b, std::string("payload")); });
    poster.join();
    EXPECT_NE(deliveredOn, std::this_thread::get_id());
    center.post(kText, &a, std::string("x"));
    center.post(kNumberUnderTheSameName, &a, 7);
    center.post(kBare, &b);
    EXPECT_EQ(seen, (std::vector<std::string>{"payload", "x", "fromA", "7", "bare from b"}));
}

TEST(NotificationCenter, TokenUnregistersWhenDestroyedResetOrFromAHandler) {
    NotificationCenter center;
    int count = 0;
    {
        auto token = center.addObserver(kBare, nullptr, [&](const void*) { ++count; });
        center.post(kBare);
        ObserverToken moved = std::move(token);
        EXPECT_FALSE(token.isActive());
        center.post(kBare);
    }
    center.post(kBare);
    EXPECT_EQ(count, 2);

    ObserverToken first, second;
    first = center.addObserver(kBare, nullptr, [&](const void*) {
        second.reset();
        first.reset();
    });
    second = center.addObserver(kBare, nullptr, [&](const void*) { ++count; });
    center.post(kBare);
    center.post(kBare);
    EXPECT_EQ(count, 2);
}

TEST(NotificationCenter, ConcurrentPostsAndRemovalsNeverCallARemovedHandler) {
    NotificationCenter center;
    std::atomic<int> calls{0};
    std::atomic<bool> removed{false}, callAfterRemoval{false};
    auto token = center.addObserver(kBare, nullptr, [&](const void*) {
        if (removed)
            callAfterRemoval = true;
        ++calls;
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t)
        posters.emplace_back([&] {
            for (int i = 0; i < 2000; ++i)
                center.post(kBare);
        });
    while (calls < 100)
        std::this_thread::yield();
    token.reset();
    removed = true;
    for (auto& p : posters)
        p.join();
    EXPECT_FALSE(callAfterRemoval);
}
