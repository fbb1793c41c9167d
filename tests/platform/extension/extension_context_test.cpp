#include "platform/extension/extension_context.h"
#include "platform/extension/in_memory_item_provider.h"
#include "platform/extension/type_identifier.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace tasket::platform;

namespace {

TEST(ExtensionContext, KeepsItsInputItemsInOrder) {
    auto first =
        InMemoryItemProvider::make(std::string(kTypeURL), *Url::parse("https://a.example"));
    auto second =
        InMemoryItemProvider::make(std::string(kTypeURL), *Url::parse("https://b.example"));
    ExtensionContext context({ExtensionItem{{first, second}}, ExtensionItem{}}, nullptr);
    ASSERT_EQ(context.inputItems().size(), 2u);
    EXPECT_EQ(context.inputItems()[0].attachments.at(0), first);
    EXPECT_EQ(context.inputItems()[0].attachments.at(1), second);
    EXPECT_TRUE(context.inputItems()[1].attachments.empty());
}

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
