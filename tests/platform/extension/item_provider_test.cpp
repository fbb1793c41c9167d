// What a share hands over and how it ends: item providers loading their
// items off the calling thread, and the context completing the request once.
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

Url url(std::string_view text) {
    return *Url::parse(text);
}

std::shared_ptr<InMemoryItemProvider> imageFileProvider() {
    auto provider = InMemoryItemProvider::make();
    provider->registerItem(std::string(kTypeFileURL), url("file:///tmp/photo.png"));
    provider->registerItem(std::string(kTypePNG), InMemoryImage{{1, 2, 3}, std::string(kTypePNG)});
    return provider;
}

TEST(ItemProvider, LoadsTheFirstRegisteredTypeConformingToTheRequest) {
    auto provider = InMemoryItemProvider::make();
    provider->registerItem(std::string(kTypePNG), InMemoryImage{{1}, std::string(kTypePNG)});
    provider->registerItem(std::string(kTypeJPEG), InMemoryImage{{2}, std::string(kTypeJPEG)});
    provider->registerItem(std::string(kTypeURL), url("https://example.com/a.png"));

    auto image = provider->loadItem(kTypeImage).get();
    ASSERT_TRUE(image);
    EXPECT_EQ(std::get<InMemoryImage>(*image).encoded, Bytes{1});

    auto jpeg = provider->loadItem(kTypeJPEG).get();
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(std::get<InMemoryImage>(*jpeg).encoded, Bytes{2});

    auto link = provider->loadItem(kTypeURL).get();
    ASSERT_TRUE(link);
    EXPECT_EQ(std::get<Url>(*link).absoluteString(), "https://example.com/a.png");
}

TEST(ItemProvider, FailsForTypesItDoesNotOfferAndPassesRegisteredErrors) {
    auto provider = InMemoryItemProvider::make(
        std::string(kTypeURL), std::unexpected(Error{Errc::ioError, "the sender went away"}));
    auto missing = provider->loadItem(kTypeImage).get();
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, Errc::notFound);
    EXPECT_NE(missing.error().message.find("public.image"), std::string::npos);

    auto failed = provider->loadItem(kTypeURL).get();
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().code, Errc::ioError);
    EXPECT_EQ(failed.error().message, "the sender went away");
}

TEST(ItemProvider, CompletesOnTheLoadingThreadNotInsideTheCall) {
    const auto provider = imageFileProvider();
    std::promise<std::thread::id> ranOn;
    provider->loadItem(kTypeURL,
                       [&](Result<LoadedItem>) { ranOn.set_value(std::this_thread::get_id()); });
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
}

TEST(ItemProvider, PendingLoadKeepsItsProviderAlive) {
    // Hold the loading thread so the second load is still queued when the
    // last outside reference to its provider goes.
    std::promise<void> release;
    auto blocker = imageFileProvider();
    std::promise<void> blocking;
    blocker->loadItem(kTypeURL, [&](Result<LoadedItem>) {
        blocking.set_value();
        release.get_future().wait();
    });
    blocking.get_future().wait();

    auto provider = imageFileProvider();
    std::weak_ptr<InMemoryItemProvider> watch = provider;
    auto pending = provider->loadItem(kTypeImage);
    provider.reset();
    EXPECT_FALSE(watch.expired());
    release.set_value();

    auto loaded = pending.get();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(std::get<InMemoryImage>(*loaded).encoded, (Bytes{1, 2, 3}));
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
