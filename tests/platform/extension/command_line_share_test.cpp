#include "platform/extension/command_line_share.h"
#include "platform/extension/type_identifier.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <tuple>

using namespace tasket::platform;
using tasket::testing::TempDir;
using tasket::testing::writeFile;

namespace {

const std::string kPngBytes("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);

LoadedItem load(const ItemProvider& provider, std::string_view type) {
    auto loaded = provider.loadItem(type).get();
    EXPECT_TRUE(loaded) << loaded.error().message;
    return loaded ? *loaded : LoadedItem{Bytes{}};
}

class CommandLineShareTest : public ::testing::Test {
  protected:
    CommandLineShare read(std::vector<ShareArgumentGroup> groups, std::string standardInput = {}) {
        std::istringstream in(std::move(standardInput));
        return readCommandLineShare(
            groups, {.workingDirectory = m_dir.path(), .standardInput = &in, .maxFileSize = 64});
    }
    std::string fileLink(std::string_view name) {
        return Url::fromFilePath(m_dir / name)->absoluteString();
    }

    TempDir m_dir;
};

// Links, paths (relative, absolute, as file links, with a colon) and
// pictures each become one provider; an image file hands out its URL for
// the image type too, its bytes read by whoever attaches it.
TEST_F(CommandLineShareTest, MapsEachArgumentToOneProviderInOrder) {
    for (const char* name : {"a b.txt", "notes:2024.txt", "photo.JPG"})
        writeFile(m_dir / name, "x");
    using Types = std::vector<std::string>;
    // The argument, the types its provider offers and the URL it loads.
    const std::tuple<std::string, Types, std::string> cases[] = {
        {"https://example.com/page?id=1", {"public.url"}, "https://example.com/page?id=1"},
        {"a b.txt", {"public.file-url"}, fileLink("a b.txt")},
        {fileLink("a b.txt"), {"public.file-url"}, fileLink("a b.txt")},
        {"./sub/../a b.txt", {"public.file-url"}, fileLink("a b.txt")},
        {"notes:2024.txt", {"public.file-url"}, fileLink("notes:2024.txt")},
        {(m_dir / "photo.JPG").string(), {"public.file-url", "public.jpeg"}, fileLink("photo.JPG")},
    };
    ShareArgumentGroup first;
    for (const auto& c : cases)
        first.push_back(LinkOrPathArgument{std::get<0>(c)});
    const CommandLineShare share =
        read({first, {ImageArgument{"-"}}, {ImageArgument{"-"}}}, kPngBytes);
    ASSERT_EQ(share.inputItems.size(), 3u);
    EXPECT_TRUE(share.textArguments.empty());
    ASSERT_EQ(share.inputItems[0].attachments.size(), std::size(cases));
    for (std::size_t i = 0; const auto& [argument, types, url] : cases) {
        SCOPED_TRACE(argument);
        const auto& provider = *share.inputItems[0].attachments[i++];
        EXPECT_EQ(provider.registeredTypeIdentifiers(), types);
        EXPECT_EQ(std::get<Url>(load(provider, types.back())).absoluteString(), url);
    }
    // Standard input is read once: for the first picture, not the second.
    ASSERT_EQ(share.inputItems[1].attachments.size(), 1u);
    const auto& picture = *share.inputItems[1].attachments[0];
    EXPECT_EQ(picture.registeredTypeIdentifiers(), Types{"public.png"});
    EXPECT_FALSE(picture.hasItemConformingTo(kTypeURL));
    const auto image = std::get<InMemoryImage>(load(picture, kTypeImage));
    EXPECT_EQ(image.encoded, Bytes(kPngBytes.begin(), kPngBytes.end()));
    EXPECT_EQ(image.typeIdentifier, "public.png");
    ASSERT_EQ(share.skipped.size(), 1u);
    EXPECT_EQ(share.skipped[0].itemIndex, 2u);
    EXPECT_NE(share.skipped[0].error.message.find("twice"), std::string::npos);

    const auto nothing = read({{ImageArgument{"-"}}}, "").skipped.at(0).error.message;
    EXPECT_NE(nothing.find("\"standard input\": it holds no image bytes"), std::string::npos);
    // Bytes no signature matches are still a picture.
    const CommandLineShare unknown = read({{ImageArgument{"-"}}}, "no signature matches");
    const auto& unknownPicture = *unknown.inputItems.at(0).attachments.at(0);
    EXPECT_EQ(unknownPicture.registeredTypeIdentifiers(), Types{"public.image"});
    EXPECT_EQ(std::get<InMemoryImage>(load(unknownPicture, kTypeImage)).typeIdentifier,
              "public.image");
}

TEST_F(CommandLineShareTest, LinksThatAreNoUrlsComeBackAsText) {
    const std::string note = "note: call \xe2\x80\x8f\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d";
    const CommandLineShare share =
        read({{LinkOrPathArgument{"https://"}, LinkOrPathArgument{"https://example.com/ok"},
               LinkOrPathArgument{note}},
              {LinkOrPathArgument{"http://exa mple.com"}}});
    ASSERT_EQ(share.textArguments.size(), 3u);
    EXPECT_EQ(share.textArguments[0].text, "https://");
    EXPECT_EQ(share.textArguments[1].text, note);
    EXPECT_EQ(share.textArguments[2].itemIndex, 1u);
    EXPECT_EQ(share.inputItems[0].attachments.size(), 1u);
    EXPECT_TRUE(share.inputItems[1].attachments.empty());
    EXPECT_TRUE(share.skipped.empty());
}

TEST_F(CommandLineShareTest, SkipsBadArgumentsWithAMessageNamingThem) {
    writeFile(m_dir / "fits.bin", std::string(64, 'x'));
    writeFile(m_dir / "big.png", kPngBytes + std::string(49, 'x'));
    const std::string nul("fits.bin\0.txt", 13);
    // The argument, how the message names it, the error and a phrase of it.
    const std::tuple<ShareArgument, std::string, Errc, std::string> cases[] = {
        {LinkOrPathArgument{"missing \xf0\x9f\x98\x80.txt"}, "missing \xf0\x9f\x98\x80.txt",
         Errc::notFound, "no such file"},
        {LinkOrPathArgument{""}, "", Errc::invalidArgument, "names nothing"},
        {LinkOrPathArgument{nul}, nul, Errc::invalidArgument, "NUL byte"},
        {LinkOrPathArgument{"file:///nonexistent/x.txt"}, "file:///nonexistent/x.txt",
         Errc::notFound, "no such file"},
        {LinkOrPathArgument{"file://server/share/x.txt"}, "file://server/share/x.txt",
         Errc::invalidArgument, "no file on this computer"},
        {ImageArgument{"big.png"}, "big.png", Errc::invalidArgument, "larger than the 64 bytes"},
    };
    for (const auto& [argument, shown, code, phrase] : cases) {
        SCOPED_TRACE(shown);
        const CommandLineShare share = read({{argument, LinkOrPathArgument{"fits.bin"}}});
        ASSERT_EQ(share.skipped.size(), 1u);
        const auto& message = share.skipped[0].error.message;
        EXPECT_EQ(share.skipped[0].argument, shown);
        EXPECT_EQ(share.skipped[0].error.code, code);
        EXPECT_NE(message.find("\"" + shown + "\": "), std::string::npos) << message;
        EXPECT_NE(message.find(phrase), std::string::npos) << message;
        // The rest of the item is still there.
        ASSERT_EQ(share.inputItems.at(0).attachments.size(), 1u);
    }
}

} // namespace
