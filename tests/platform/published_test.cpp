#include "platform/main_queue.h"
#include "platform/published.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using tasket::platform::MainQueue;
using tasket::platform::Published;
using tasket::platform::Subscription;

namespace {

// What one subscriber was told, in order.
struct Heard {
    std::vector<std::string> values;
    auto observer() {
        return [this](const std::string& v) { values.push_back(v); };
    }
};

} // namespace

TEST(Published, ReadsAtOnceAndTellsEachSetLaterOnTheMainQueueInOrder) {
    MainQueue::shared().pump();
    Published<std::string> text("a");
    Heard heard;
    auto subscription = text.subscribe(heard.observer());
    text.set("b");
    text.set("c");
    EXPECT_EQ(text.value(), "c");
    EXPECT_TRUE(heard.values.empty()) << "told inside set()";
    MainQueue::shared().pump();
    EXPECT_EQ(heard.values, (std::vector<std::string>{"b", "c"}));
}

TEST(Published, TellsOnlySubscriptionsAliveWhenSetAndStillAliveWhenDelivered) {
    using Value = std::unique_ptr<Published<std::string>>;
    struct Case {
        const char* name;
        // Runs after set("x") and before the main queue runs.
        std::function<void(Value&, Subscription&, Heard& late)> between;
        bool firstHears;
        bool lateHears;
    };
    std::optional<Subscription> lateSubscription;
    const std::vector<Case> cases = {
        {"nothing in between", [](auto&, auto&, auto&) {}, true, false},
        {"the subscription reset", [](auto&, Subscription& s, auto&) { s.reset(); }, false, false},
        {"the subscription moved away and kept",
         [&](auto&, Subscription& s, auto&) { lateSubscription = std::move(s); }, true, false},
        {"a subscriber added after the set",
         [&](Value& p, auto&, Heard& late) { lateSubscription = p->subscribe(late.observer()); },
         true, false},
        {"the value destroyed", [](Value& p, auto&, auto&) { p.reset(); }, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MainQueue::shared().pump();
        auto text = std::make_unique<Published<std::string>>();
        Heard first, late;
        auto subscription = text->subscribe(first.observer());
        text->set("x");
        c.between(text, subscription, late);
        MainQueue::shared().pump();
        EXPECT_EQ(!first.values.empty(), c.firstHears);
        EXPECT_EQ(!late.values.empty(), c.lateHears);
        lateSubscription.reset();
        subscription.reset(); // even after its value is gone
        EXPECT_FALSE(subscription.isActive());
    }
}

TEST(Published, ACallbackThatEndsAnotherSubscriptionStopsItsDelivery) {
    MainQueue::shared().pump();
    Published<int> number;
    std::optional<Subscription> second;
    int secondCalls = 0;
    auto first = number.subscribe([&](int) { second.reset(); });
    second = number.subscribe([&](int) { ++secondCalls; });
    number.set(1);
    MainQueue::shared().pump();
    EXPECT_EQ(secondCalls, 0);
}
