#include "platform/extension/command_line_share.h"
#include "platform/extension/type_identifier.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace tasket::platform;
using tasket::testing::TempDir;

namespace {

const std::string kPngBytes("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);

void writeFile(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
}

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

    TempDir m_dir;
};

TEST_F(CommandLineShareTest, MapsEachArgumentToOneProviderInOrder) {
    writeFile(m_dir / "notes.txt", "notes");
    writeFile(m_dir / "photo.JPG", "not really a jpeg");
    const CommandLineShare share =
        read({{LinkOrPathArgument{"https://example.com/page?id=1"}, LinkOrPathArgument{"notes.txt"},
               LinkOrPathArgument{(m_dir / "photo.JPG").string()}, ImageArgument{"-"}},
              {LinkOrPathArgument{"https://example.org"}}},
             kPngBytes);
    EXPECT_TRUE(share.skipped.empty());
    EXPECT_TRUE(share.textArguments.empty());
    ASSERT_EQ(share.inputItems.size(), 2u);
    const auto& providers = share.inputItems[0].attachments;
    ASSERT_EQ(providers.size(), 4u);

    using Types = std::vector<std::string>;
    EXPECT_EQ(providers[0]->registeredTypeIdentifiers(), Types{"public.url"});
    EXPECT_EQ(providers[1]->registeredTypeIdentifiers(), Types{"public.file-url"});
    EXPECT_EQ(providers[2]->registeredTypeIdentifiers(), (Types{"public.file-url", "public.jpeg"}));
    EXPECT_EQ(providers[3]->registeredTypeIdentifiers(), Types{"public.png"});

    EXPECT_EQ(std::get<Url>(load(*providers[0], kTypeURL)).absoluteString(),
              "https://example.com/page?id=1");
    const Url notes = std::get<Url>(load(*providers[1], kTypeURL));
    EXPECT_TRUE(notes.isFileURL());
    EXPECT_EQ(notes.filePath(), m_dir / "notes.txt");
    // An image file hands out its URL for the image type too; its bytes are
    // read by whoever attaches it.
    EXPECT_EQ(std::get<Url>(load(*providers[2], kTypeImage)).filePath(), m_dir / "photo.JPG");
    const auto image = std::get<InMemoryImage>(load(*providers[3], kTypeImage));
    EXPECT_EQ(image.encoded, Bytes(kPngBytes.begin(), kPngBytes.end()));
    EXPECT_EQ(image.typeIdentifier, "public.png");
    EXPECT_FALSE(providers[3]->hasItemConformingTo(kTypeURL));

    ASSERT_EQ(share.inputItems[1].attachments.size(), 1u);
}

TEST_F(CommandLineShareTest, FileLinksArePathsAndNamesThatLookLikeLinksCanBeFiles) {
    writeFile(m_dir / "a b.txt", "x");
    writeFile(m_dir / "notes:2024.txt", "x");
    const std::string fileLink = Url::fromFilePath(m_dir / "a b.txt")->absoluteString();
    const CommandLineShare share =
        read({{LinkOrPathArgument{fileLink}, LinkOrPathArgument{"notes:2024.txt"},
               LinkOrPathArgument{"./sub/../a b.txt"}}});
    ASSERT_TRUE(share.skipped.empty()) << share.skipped[0].error.message;
    const auto& providers = share.inputItems.at(0).attachments;
    ASSERT_EQ(providers.size(), 3u);
    EXPECT_EQ(std::get<Url>(load(*providers[0], kTypeFileURL)).absoluteString(), fileLink);
    EXPECT_EQ(std::get<Url>(load(*providers[1], kTypeURL)).filePath(), m_dir / "notes:2024.txt");
    EXPECT_EQ(std::get<Url>(load(*providers[2], kTypeURL)).absoluteString(), fileLink);
}

TEST_F(CommandLineShareTest, LinksThatAreNoUrlsComeBackAsText) {
    const CommandLineShare share =
        read({{LinkOrPathArgument{"https://"}, LinkOrPathArgument{"https://example.com/ok"},
               LinkOrPathArgument{
                   "note: call \xe2\x80\x8f\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xf0\x9f\x93\x9e"}},
              {LinkOrPathArgument{"http://exa mple.com"}}});
    ASSERT_EQ(share.textArguments.size(), 3u);
    EXPECT_EQ(share.textArguments[0].text, "https://");
    EXPECT_EQ(share.textArguments[1].text,
              "note: call \xe2\x80\x8f\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xf0\x9f\x93\x9e");
    EXPECT_EQ(share.textArguments[2].itemIndex, 1u);
    EXPECT_EQ(share.inputItems[0].attachments.size(), 1u);
    EXPECT_TRUE(share.inputItems[1].attachments.empty());
    EXPECT_TRUE(share.skipped.empty());
}

TEST_F(CommandLineShareTest, SkipsBadArgumentsWithAMessageNamingThem) {
    writeFile(m_dir / "fits.bin", std::string(64, 'x'));
    writeFile(m_dir / "big.png", kPngBytes + std::string(49, 'x'));
    struct Case {
        ShareArgument argument;
        std::string shown; // how the message names it
        Errc code;
        std::string phrase;
    };
    const std::string nul("fits.bin\0.txt", 13);
    const Case cases[] = {
        {LinkOrPathArgument{"missing \xf0\x9f\x98\x80.txt"}, "missing \xf0\x9f\x98\x80.txt",
         Errc::notFound, "no such file"},
        {LinkOrPathArgument{""}, "", Errc::invalidArgument, "names nothing"},
        {LinkOrPathArgument{nul}, nul, Errc::invalidArgument, "NUL byte"},
        {LinkOrPathArgument{"file:///nonexistent/x.txt"}, "file:///nonexistent/x.txt",
         Errc::notFound, "no such file"},
        {LinkOrPathArgument{"file://server/share/x.txt"}, "file://server/share/x.txt",
         Errc::invalidArgument, "no file on this computer"},
        {ImageArgument{"missing.png"}, "missing.png", Errc::notFound, "no such file"},
        {ImageArgument{"big.png"}, "big.png", Errc::invalidArgument, "larger than the 64 bytes"},
    };
    for (const auto& c : cases) {
        const std::string& text = c.shown;
        SCOPED_TRACE(text);
        const CommandLineShare share = read({{c.argument, LinkOrPathArgument{"fits.bin"}}});
        ASSERT_EQ(share.skipped.size(), 1u);
        EXPECT_EQ(share.skipped[0].argument, text);
        EXPECT_EQ(share.skipped[0].error.code, c.code);
        EXPECT_NE(share.skipped[0].error.message.find(c.phrase), std::string::npos)
            << share.skipped[0].error.message;
        EXPECT_NE(share.skipped[0].error.message.find("\"" + text + "\""), std::string::npos)
            << share.skipped[0].error.message;
        // The rest of the item is still there.
        ASSERT_EQ(share.inputItems.at(0).attachments.size(), 1u);
    }
}

TEST_F(CommandLineShareTest, ReadsStandardInputOnceAndKeepsUnknownPicturesAsImages) {
    const CommandLineShare share =
        read({{ImageArgument{"-"}}, {ImageArgument{"-"}}}, "some bytes no signature matches");
    ASSERT_EQ(share.inputItems[0].attachments.size(), 1u);
    const auto& provider = *share.inputItems[0].attachments[0];
    EXPECT_EQ(provider.registeredTypeIdentifiers(), std::vector<std::string>{"public.image"});
    EXPECT_EQ(std::get<InMemoryImage>(load(provider, kTypeImage)).typeIdentifier, "public.image");

    ASSERT_EQ(share.skipped.size(), 1u);
    EXPECT_EQ(share.skipped[0].itemIndex, 1u);
    EXPECT_NE(share.skipped[0].error.message.find("twice"), std::string::npos);

    const CommandLineShare empty = read({{ImageArgument{"-"}}}, "");
    ASSERT_EQ(empty.skipped.size(), 1u);
    EXPECT_NE(empty.skipped[0].error.message.find("\"standard input\": it holds no image bytes"),
              std::string::npos);
}

} // namespace
