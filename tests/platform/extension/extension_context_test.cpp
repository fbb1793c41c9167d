#include "platform/extension/extension_context.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace tasket::platform;

namespace {

TEST(ExtensionContext, CompletesTheRequestOnce) {
    std::vector<std::size_t> handed;
    ExtensionContext context(
        {}, [&](std::vector<ExtensionItem> returned) { handed.push_back(returned.size()); });
    EXPECT_FALSE(context.isRequestCompleted());

    std::vector<bool> expired;
    const auto record = [&](bool e) { expired.push_back(e); };
    EXPECT_TRUE(context.completeRequest({}, record));
    EXPECT_FALSE(context.completeRequest({ExtensionItem{}}, record));
    EXPECT_FALSE(context.completeRequest({}));

    EXPECT_TRUE(context.isRequestCompleted());
    EXPECT_EQ(handed, std::vector<std::size_t>{0});
    EXPECT_EQ(expired, (std::vector<bool>{false, true}));
}

TEST(ExtensionContext, CompletesOnceWhenCalledFromManyThreads) {
    std::atomic<int> handled = 0;
    ExtensionContext context({}, [&](std::vector<ExtensionItem>) { ++handled; });
    std::atomic<int> won = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            if (context.completeRequest({}))
                ++won;
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(handled.load(), 1);
    EXPECT_EQ(won.load(), 1);
}

} // namespace
