#include "platform/extension/url.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using tasket::platform::Errc;
using tasket::platform::Url;

namespace {

TEST(Url, ParsesValidUrlsAndGivesLocalFilesTheirPath) {
    struct Case {
        std::string text, scheme, host;
        std::optional<std::string> filePath = std::nullopt;
        std::string absoluteString = {}; // where it differs from the text
    };
    const Case cases[] = {
        {"https://example.com/page?q=1#top", "https", "example.com"},
        {"HTTPS://Example.com", "https", "Example.com"},
        {"http://user:pw@[::1]:8080/x", "http", "[::1]"},
        {"mailto:someone@example.com", "mailto", ""},
        {"https://example.com/caf\xc3\xa9?q=\xe2\x9c\x93", "https", "example.com", std::nullopt,
         "https://example.com/caf%C3%A9?q=%E2%9C%93"},
        {"https://example.com/%F0%9F%98%80", "https", "example.com"},
        {"ftp://", "ftp", ""},
        {"file:///tmp/a%20b.png", "file", "", "/tmp/a b.png"},
        {"file://localhost/etc/hosts", "file", "localhost", "/etc/hosts"},
        {"file:/etc/hosts", "file", "", "/etc/hosts"},
        // File URLs that name no local file.
        {"file://server/share/x", "file", "server"},
        {"file:///tmp/a%00b", "file", ""},
        {"file:relative", "file", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        auto url = Url::parse(c.text);
        ASSERT_TRUE(url) << url.error().message;
        EXPECT_EQ(url->absoluteString(), c.absoluteString.empty() ? c.text : c.absoluteString);
        EXPECT_EQ(url->scheme(), c.scheme);
        EXPECT_EQ(url->host(), c.host);
        EXPECT_EQ(url->isFileURL(), c.scheme == "file");
        const auto path = url->filePath();
        EXPECT_EQ(path ? std::optional(path->native()) : std::nullopt, c.filePath);
    }
}

TEST(Url, RefusesTextThatIsNoUrl) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "does not start with a scheme"},
        {"example.com", "does not start with a scheme"},
        {"1http://x", "does not start with a scheme"},
        {"http:///path", "needs a host"},
        {"https:example.com", "needs a host"},
        {"https://exa mple.com", "host contains ' '"},
        {"note: call Bob", "contains a space"},
        {"https://example.com/\n", "control character"},
        {std::string("https://example.com/\0x", 22), "control character"},
        {"https://example.com/<b>", "contains '<'"},
        {"https://ex\xc3\xa4mple.com/", "host is not ASCII"},
        {"https://example.com/%zz", "percent escape"},
        {"https://example.com/%2", "percent escape"},
        {"https://example.com:80a/", "port is not a number"},
        {"https://example.com/\xff", "not valid UTF-8"},
        {"https://example.com/\xc0\xaf", "not valid UTF-8"},     // overlong '/'
        {"https://example.com/\xed\xa0\x80", "not valid UTF-8"}, // surrogate
        {"https://[::1/", "unclosed '['"},
    };
    for (const auto& [text, reason] : cases) {
        SCOPED_TRACE(text);
        auto url = Url::parse(text);
        ASSERT_FALSE(url) << url->absoluteString();
        EXPECT_EQ(url.error().code, Errc::parseError);
        EXPECT_NE(url.error().message.find(reason), std::string::npos) << url.error().message;
    }
    using Bytes = std::vector<std::uint8_t>;
    EXPECT_FALSE(Url::fromDataRepresentation(Bytes{0xff, 0xfe, 0x00, 0x41}));
    EXPECT_EQ(Url::fromDataRepresentation(Bytes{'x', ':', 'y'})->absoluteString(), "x:y");
}

TEST(Url, SplitsTheLastPathComponent) {
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"file:///tmp/report.final.pdf", "report.final.pdf", "pdf", "report.final"},
        {"file:///home/u/.bashrc", ".bashrc", "", ".bashrc"},
        {"file:///home/u/name.", "name.", "", "name."},
        {"file:///home/u/dir/", "dir", "", "dir"},
        {"file:///tmp/%E2%9C%93%20list.txt", "\xe2\x9c\x93 list.txt", "txt", "\xe2\x9c\x93 list"},
        {"https://example.com/a/b.html?x=1.2#c.d", "b.html", "html", "b"},
        {"https://example.com", "", "", ""},
        {"https://example.com/", "/", "", "/"},
    };
    for (const auto& [text, last, extension, withoutExtension] : cases) {
        SCOPED_TRACE(text);
        auto url = Url::parse(text);
        ASSERT_TRUE(url);
        EXPECT_EQ(url->lastPathComponent(), last);
        EXPECT_EQ(url->pathExtension(), extension);
        EXPECT_EQ(url->lastPathComponentDeletingExtension(), withoutExtension);
    }
}

TEST(Url, FileUrlsFromPathsRoundTrip) {
    const std::pair<std::string, std::string> cases[] = {
        {"/tmp/a b#?%.png", "file:///tmp/a%20b%23%3F%25.png"},
        {"/tmp/\xf0\x9f\x98\x80 \xc3\xa9t\xc3\xa9", "file:///tmp/%F0%9F%98%80%20%C3%A9t%C3%A9"},
        {"/tmp/(1);a=b,c@d:e", "file:///tmp/(1);a=b,c@d:e"},
    };
    for (const auto& [path, text] : cases) {
        SCOPED_TRACE(path);
        auto url = Url::fromFilePath(path);
        ASSERT_TRUE(url);
        EXPECT_EQ(url->absoluteString(), text);
        auto reparsed = Url::parse(url->absoluteString());
        ASSERT_TRUE(reparsed);
        EXPECT_EQ(*reparsed, *url);
        EXPECT_EQ(reparsed->filePath()->native(), path);
    }
    EXPECT_EQ(Url::fromFilePath("notes/today.txt").error().code, Errc::invalidArgument);
}

} // namespace
