// What a share hands over and how it ends: item providers loading their
// items off the calling thread (unless it waits), and the context completing the request once.
#include "platform/extension/extension_context.h"
#include "platform/extension/in_memory_item_provider.h"
#include "platform/extension/type_identifier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

using namespace tasket::platform;

namespace {

Bytes imageBytes(const ItemProvider& provider, std::string_view type) {
    auto loaded = provider.loadItem(type).get();
    EXPECT_TRUE(loaded) << loaded.error().message;
    return loaded ? std::get<InMemoryImage>(*loaded).encoded : Bytes{};
}

TEST(ItemProvider, LoadsTheFirstRegisteredTypeConformingToTheRequestOrFails) {
    auto provider = InMemoryItemProvider::make();
    provider->registerItem(std::string(kTypePNG), InMemoryImage{{1}, std::string(kTypePNG)});
    provider->registerItem(std::string(kTypeJPEG), InMemoryImage{{2}, std::string(kTypeJPEG)});
    EXPECT_EQ(imageBytes(*provider, kTypeImage), Bytes{1});
    EXPECT_EQ(imageBytes(*provider, kTypeJPEG), Bytes{2});
    auto missing = provider->loadItem(kTypeURL).get();
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, Errc::notFound);
    EXPECT_NE(missing.error().message.find("public.url"), std::string::npos);

    auto failing = InMemoryItemProvider::make(
        std::string(kTypeURL), std::unexpected(Error{Errc::ioError, "the sender went away"}));
    auto failed = failing->loadItem(kTypeURL).get();
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().code, Errc::ioError);
    EXPECT_EQ(failed.error().message, "the sender went away");
}

// The first load holds the loading thread, so the second is still queued
// when the last outside reference to its provider goes.
TEST(ItemProvider, CompletesOnTheLoadingThreadAndAPendingLoadKeepsItsProvider) {
    auto provider = InMemoryItemProvider::make();
    provider->registerItem(std::string(kTypePNG), InMemoryImage{{1, 2, 3}, std::string(kTypePNG)});
    std::promise<std::thread::id> ranOn;
    std::promise<void> release;
    provider->loadItem(kTypePNG, [&](Result<LoadedItem>) {
        ranOn.set_value(std::this_thread::get_id());
        release.get_future().wait();
    });
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());

    std::weak_ptr<InMemoryItemProvider> watch = provider;
    std::promise<Result<LoadedItem>> pending;
    provider->loadItem(kTypeImage, [&](Result<LoadedItem> item) { pending.set_value(item); });
    provider.reset();
    EXPECT_FALSE(watch.expired());
    release.set_value();
    auto loaded = pending.get_future().get();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(std::get<InMemoryImage>(*loaded).encoded, (Bytes{1, 2, 3}));
}

TEST(ExtensionContext, CompletesTheRequestOnceEvenFromManyThreads) {
    std::atomic<int> handled = 0, won = 0, expired = 0;
    ExtensionContext context({},
                             [&](std::vector<ExtensionItem> items) { handled += items.size(); });
    EXPECT_FALSE(context.isRequestCompleted());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            if (context.completeRequest({ExtensionItem{}}, [&](bool e) { expired += e; }))
                ++won;
        });
    for (auto& t : threads)
        t.join();
    EXPECT_TRUE(context.isRequestCompleted());
    EXPECT_FALSE(context.completeRequest({})); // without a completion handler
    EXPECT_EQ(handled.load(), 1);
    EXPECT_EQ(won.load(), 1);
    EXPECT_EQ(expired.load(), 7);
}

} // namespace
