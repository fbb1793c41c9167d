// Reading what was shared into the form's input. (That only the first
// item counts is checked through the program, where --item makes items.)
#include "platform/extension/png_only_image_converter.h"
#include "share/shared_input.h"
#include "share_test_support.h"

#include <functional>

using namespace tasket::testing;
using tasket::platform::Errc;
using tasket::platform::ExtensionContext;
using tasket::platform::ExtensionItem;
using tasket::platform::LoadedItem;
using tasket::platform::MainQueue;
using tasket::platform::PngOnlyImageConverter;
using tasket::platform::Result;
using tasket::rules::TK_AttachmentType;
using tasket::share::readSharedInput;
using tasket::share::SharedInput;
using tasket::store::LocalDataManager;

namespace {

class SharedInputTest : public ::testing::Test {
  protected:
    SharedInput read(std::vector<ExtensionItem> items, bool paidTier) {
        auto context = std::make_shared<ExtensionContext>(std::move(items), nullptr);
        return readFrom(context, paidTier);
    }
    SharedInput readFrom(std::shared_ptr<const ExtensionContext> context, bool paidTier) {
        std::optional<SharedInput> result;
        readSharedInput(std::move(context),
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

    TempDir dir;
    std::shared_ptr<LocalDataManager> data = LocalDataManager::make(dir.path());
    PngOnlyImageConverter converter;
    int checks = 0;
};

std::vector<std::string> titles(const SharedInput& input) {
    std::vector<std::string> out;
    for (const auto& payload : input.attachments)
        out.push_back(payload.title + "|" + payload.fileExtension);
    return out;
}

} // namespace

TEST_F(SharedInputTest, NothingSharedGivesAnEmptyResultWithoutAskingForThePaidTier) {
    for (const std::size_t itemCount : {0, 1}) {
        const SharedInput input = read(std::vector<ExtensionItem>(itemCount), true);
        EXPECT_TRUE(input.url.empty());
        EXPECT_TRUE(input.attachments.empty());
        EXPECT_FALSE(input.isAddingAttachmentsWithoutPremium);
    }
    EXPECT_TRUE(readFrom(nullptr, true).attachments.empty());
    EXPECT_EQ(checks, 0);
}

TEST_F(SharedInputTest, ReadsEachKindOfProviderAsTheRulesSay) {
    writeFile(dir / "Quarterly report.final.pdf", "%PDF-1.7 report");
    writeFile(dir / "README", "read me");
    writeFile(dir / "photo.png", "png on disk");
    const auto plainText =
        InMemoryItemProvider::make(std::string(tasket::platform::kTypePlainText), Bytes{});
    struct Case {
        const char* name;
        std::vector<std::shared_ptr<const ItemProvider>> providers;
        bool paidTier;
        std::string url;
        std::vector<std::string> attachments; // title|extension
        bool withoutPremium;
    };
    const std::vector<Case> cases = {
        {"a web page gives the link and nothing to attach",
         {webLink("https://example.com/a%20b?q=1#top")},
         false,
         "https://example.com/a%20b?q=1#top",
         {},
         false},
        {"a link handed out as data",
         {InMemoryItemProvider::make(std::string(tasket::platform::kTypeURL),
                                     bytesOf("https://example.org/x"))},
         false,
         "https://example.org/x",
         {},
         false},
        {"a file without the paid tier is skipped and flagged",
         {fileLink(dir / "README")},
         false,
         "",
         {},
         true},
        {"a picture without the paid tier is skipped and flagged",
         {pictureInMemory(pngBytes(), "public.png")},
         false,
         "",
         {},
         true},
        {"files with the paid tier: title without the last extension, a bare name kept whole",
         {fileLink(dir / "Quarterly report.final.pdf"), fileLink(dir / "README")},
         true,
         "",
         {"Quarterly report.final|pdf", "README|"},
         false},
        {"an image provider handing out a file URL reads the file",
         {InMemoryItemProvider::make("public.png", *Url::fromFilePath(dir / "photo.png"))},
         true,
         "",
         {"photo|png"},
         false},
        {"a picture in memory becomes PNG with no title",
         {pictureInMemory(pngBytes(), "public.png")},
         true,
         "",
         {"|png"},
         false},
        {"other types are ignored", {plainText}, true, "", {}, false},
        {"providers in order: the last link wins, files keep their order",
         {webLink("https://one.example"), fileLink(dir / "README"), webLink("https://two.example"),
          fileLink(dir / "photo.png")},
         true,
         "https://two.example",
         {"README|", "photo|png"},
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const SharedInput input = read({ExtensionItem{c.providers}}, c.paidTier);
        EXPECT_EQ(input.url, c.url);
        EXPECT_EQ(titles(input), c.attachments);
        EXPECT_EQ(input.isAddingAttachmentsWithoutPremium, c.withoutPremium);
        EXPECT_TRUE(input.refused.empty()) << input.refused.front().message;
    }
}

TEST_F(SharedInputTest, AFileAttachmentCarriesItsExactBytesANewUpperCaseIdentifierAndKind) {
    std::string content("bytes\0with\xff nul and high bits", 30);
    writeFile(dir / "data.bin", content);
    const SharedInput input =
        read({ExtensionItem{{fileLink(dir / "data.bin"), fileLink(dir / "data.bin")}}}, true);
    ASSERT_EQ(input.attachments.size(), 2u);
    const auto& payload = input.attachments.front();
    EXPECT_EQ(payload.content, bytesOf(content));
    EXPECT_EQ(payload.type, TK_AttachmentType::file);
    EXPECT_EQ(payload.identifier.size(), 36u);
    EXPECT_EQ(payload.identifier, tasket::platform::Uuid::parse(payload.identifier)->toString());
    EXPECT_NE(payload.identifier, input.attachments.back().identifier);
}

TEST_F(SharedInputTest, AsksForThePaidTierOnceHoweverManyFilesThereAre) {
    writeFile(dir / "a", "a");
    read({ExtensionItem{{fileLink(dir / "a"), fileLink(dir / "a"),
                         pictureInMemory(pngBytes(), "public.png")}}},
         false);
    EXPECT_EQ(checks, 1);
}

TEST_F(SharedInputTest, WhatCannotBeReadIsRefusedNamingItAndTheRestIsKept) {
    writeFile(dir / "kept.txt", "kept");
    writeFile(dir / "gone.txt", "gone");
    auto gone = fileLink(dir / "gone.txt");
    std::filesystem::remove(dir / "gone.txt");
    const auto failing = InMemoryItemProvider::make(
        std::string(tasket::platform::kTypeURL),
        Result<LoadedItem>(
            std::unexpected(tasket::platform::Error{Errc::ioError, "the sender went away"})));
    const SharedInput input = read(
        {ExtensionItem{{gone, pictureInMemory(bytesOf("GIF89a not really"), "com.compuserve.gif"),
                        failing, fileLink(dir / "kept.txt")}}},
        true);
    EXPECT_EQ(titles(input), std::vector<std::string>{"kept|txt"});
    ASSERT_EQ(input.refused.size(), 3u);
    EXPECT_NE(input.refused[0].message.find("gone.txt"), std::string::npos)
        << input.refused[0].message;
    EXPECT_NE(input.refused[1].message.find("cannot be decoded"), std::string::npos)
        << input.refused[1].message;
    EXPECT_EQ(input.refused[2].message, "the sender went away");
}
