// Reading what was shared into the form's input. (That only the first
// item counts, and what a link or a file becomes with and without the paid
// tier, are checked through the program, where --item makes items.)
#include "share/shared_input.h"
#include "share_test_support.h"

#include <gmock/gmock.h>

using namespace tasket::testing;
using tasket::platform::Errc;
using tasket::platform::ExtensionContext;
using tasket::platform::ExtensionItem;
using tasket::platform::LoadedItem;
using tasket::platform::MainQueue;
using tasket::rules::TK_AttachmentType;
using tasket::share::SharedInput;

namespace {

class SharedInputTest : public ShareFixture {
  protected:
    SharedInput read(std::vector<std::shared_ptr<const ItemProvider>> providers, bool paidTier) {
        return readFrom(
            std::make_shared<ExtensionContext>(
                std::vector<ExtensionItem>{ExtensionItem{std::move(providers)}}, nullptr),
            paidTier);
    }
    SharedInput readFrom(std::shared_ptr<const ExtensionContext> context, bool paidTier) {
        std::optional<SharedInput> result;
        tasket::share::readSharedInput(std::move(context),
                                       {.isPaidTierActive =
                                            [this, paidTier] {
                                                ++checks;
                                                return paidTier;
                                            },
                                        .localDataManager = data,
                                        .imageConverter = &converter},
                                       [&](SharedInput input) { result = std::move(input); });
        EXPECT_TRUE(MainQueue::shared().runUntil([&] { return result.has_value(); }));
        return result ? std::move(*result) : SharedInput{};
    }

    int checks = 0;
};

std::vector<std::string> titles(const SharedInput& input) {
    std::vector<std::string> out;
    for (const auto& payload : input.attachments)
        out.push_back(payload.title + "|" + payload.fileExtension);
    return out;
}

} // namespace

TEST_F(SharedInputTest, ReadsEachKindOfProviderAsTheRulesSayAskingForThePaidTierOnce) {
    writeFile(dir / "README", "read me");
    writeFile(dir / "photo.png", "png on disk");
    const auto linkData = InMemoryItemProvider::make(std::string(tasket::platform::kTypeURL),
                                                     bytesOf("https://example.org/x"));
    const auto photoFile =
        InMemoryItemProvider::make("public.png", *Url::fromFilePath(dir / "photo.png"));
    const auto text =
        InMemoryItemProvider::make(std::string(tasket::platform::kTypePlainText), Bytes{});
    const auto picture = pictureInMemory(pngBytes(), "public.png");
    struct Case {
        const char* name;
        std::vector<std::shared_ptr<const ItemProvider>> providers;
        bool paidTier;
        std::string url;
        std::vector<std::string> attachments; // title|extension
        bool withoutPremium = false;
        int checks = 1; // of the paid tier: once when the item has providers
    };
    const std::vector<Case> cases = {
        {"nothing shared", {}, true, "", {}, false, 0},
        {"a link handed out as data", {linkData}, false, "https://example.org/x", {}},
        {"a picture without the paid tier is skipped and flagged", {picture}, false, "", {}, true},
        {"an image provider's file URL: the file", {photoFile}, true, "", {"photo|png"}},
        {"a picture in memory becomes PNG with no title", {picture}, true, "", {"|png"}},
        {"other types are ignored", {text}, true, "", {}},
        {"providers in order: the last link wins, files keep their order",
         {webLink("https://one.example"), fileLink(dir / "README"), webLink("https://two.example"),
          fileLink(dir / "photo.png"), picture},
         true,
         "https://two.example",
         {"README|", "photo|png", "|png"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        checks = 0;
        const SharedInput input = read(c.providers, c.paidTier);
        EXPECT_EQ(input.url, c.url);
        EXPECT_EQ(titles(input), c.attachments);
        EXPECT_EQ(input.isAddingAttachmentsWithoutPremium, c.withoutPremium);
        EXPECT_TRUE(input.refused.empty()) << input.refused.front().message;
        EXPECT_EQ(checks, c.checks);
    }
    // No item at all, or no context: nothing, and nobody asked.
    checks = 0;
    EXPECT_TRUE(
        readFrom(std::make_shared<ExtensionContext>(std::vector<ExtensionItem>{}, nullptr), true)
            .attachments.empty());
    EXPECT_TRUE(readFrom(nullptr, true).attachments.empty());
    EXPECT_EQ(checks, 0);
}

TEST_F(SharedInputTest, AFileAttachmentCarriesItsExactBytesANewUpperCaseIdentifierAndKind) {
    std::string content("bytes\0with\xff nul and high bits", 30);
    writeFile(dir / "data.bin", content);
    const SharedInput input = read({fileLink(dir / "data.bin"), fileLink(dir / "data.bin")}, true);
    ASSERT_EQ(input.attachments.size(), 2u);
    const auto& payload = input.attachments.front();
    EXPECT_EQ(payload.content, bytesOf(content));
    EXPECT_EQ(payload.type, TK_AttachmentType::file);
    EXPECT_EQ(payload.identifier, tasket::platform::Uuid::parse(payload.identifier)->toString());
    EXPECT_NE(payload.identifier, input.attachments.back().identifier);
}

TEST_F(SharedInputTest, WhatCannotBeReadIsRefusedNamingItAndTheRestIsKept) {
    writeFile(dir / "kept.txt", "kept");
    const auto failing = InMemoryItemProvider::make(
        std::string(tasket::platform::kTypeURL),
        tasket::platform::Result<LoadedItem>(
            std::unexpected(tasket::platform::Error{Errc::ioError, "the sender went away"})));
    const SharedInput input =
        read({fileLink(dir / "gone.txt"),
              pictureInMemory(bytesOf("GIF89a not really"), "com.compuserve.gif"), failing,
              fileLink(dir / "kept.txt")},
             true);
    EXPECT_EQ(titles(input), std::vector<std::string>{"kept|txt"});
    ASSERT_EQ(input.refused.size(), 3u);
    EXPECT_THAT(input.refused[0].message, ::testing::HasSubstr("gone.txt"));
    EXPECT_THAT(input.refused[1].message, ::testing::HasSubstr("cannot be decoded"));
    EXPECT_EQ(input.refused[2].message, "the sender went away");
}
