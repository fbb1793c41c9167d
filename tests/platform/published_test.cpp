#include "platform/main_queue.h"
#include "platform/published.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
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

// A value reads at once; each set is told later, on the main queue, in order,
// to the subscriptions alive both when set and when delivered.
TEST(Published, TellsEachSetLaterToSubscriptionsAliveWhenSetAndWhenDelivered) {
    using Value = std::unique_ptr<Published<std::string>>;
    // Each runs after the sets and before the main queue runs; whether the
    // first subscriber then hears. The late subscriber never does.
    std::optional<Subscription> kept;
    using Between = std::function<void(Value&, Subscription&, Heard & late)>;
    const std::tuple<const char*, Between, bool> cases[] = {
        {"nothing in between", [](auto&, auto&, auto&) {}, true},
        {"the subscription reset", [](auto&, Subscription& s, auto&) { s.reset(); }, false},
        {"the subscription moved away and kept",
         [&](auto&, Subscription& s, auto&) { kept = std::move(s); }, true},
        {"a subscriber added after the set",
         [&](Value& p, auto&, Heard& late) { kept = p->subscribe(late.observer()); }, true},
        {"the value destroyed", [](Value& p, auto&, auto&) { p.reset(); }, false},
    };
    for (const auto& [name, between, firstHears] : cases) {
        SCOPED_TRACE(name);
        MainQueue::shared().pump();
        auto text = std::make_unique<Published<std::string>>();
        Heard first, late;
        auto subscription = text->subscribe(first.observer());
        text->set("w");
        text->set("x");
        EXPECT_EQ(text->value(), "x");
        EXPECT_TRUE(first.values.empty()) << "told inside set()";
        between(text, subscription, late);
        MainQueue::shared().pump();
        using Told = std::vector<std::string>;
        EXPECT_EQ(first.values, (firstHears ? Told{"w", "x"} : Told{}));
        EXPECT_TRUE(late.values.empty());
        kept.reset();
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
