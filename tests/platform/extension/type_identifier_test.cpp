#include "platform/extension/type_identifier.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tasket::platform;

namespace {

TEST(TypeIdentifier, ConformanceFollowsTheHierarchy) {
    struct Case {
        std::string_view type, to;
        bool conforms;
    };
    const Case cases[] = {
        {kTypeFileURL, kTypeURL, true},
        {kTypeFileURL, kTypeData, true},
        {kTypeFileURL, kTypeItem, true},
        {kTypeURL, kTypeFileURL, false},
        {kTypeURL, kTypeImage, false},
        {kTypeFileURL, kTypeImage, false},
        {kTypePNG, kTypeImage, true},
        {kTypeJPEG, kTypeData, true},
        {kTypeWebP, kTypeContent, true},
        {kTypeImage, kTypePNG, false},
        {kTypePNG, kTypeJPEG, false},
        {kTypeImage, kTypeImage, true},
        {kTypePlainText, kTypeURL, false},
        {"com.example.custom", "com.example.custom", true},
        {"com.example.custom", kTypeItem, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " -> " + std::string(c.to));
        EXPECT_EQ(typeConforms(c.type, c.to), c.conforms);
    }
}

TEST(TypeIdentifier, RecognisesImageFileExtensions) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"png", kTypePNG},   {"JPG", kTypeJPEG}, {"jpeg", kTypeJPEG}, {"WebP", kTypeWebP},
        {"tiff", kTypeTIFF}, {"gif", kTypeGIF},  {"txt", ""},         {"", ""},
        {"pngx", ""},
    };
    for (const auto& [extension, type] : cases) {
        SCOPED_TRACE(extension);
        EXPECT_EQ(imageTypeForFileExtension(extension), type);
    }
}

TEST(TypeIdentifier, RecognisesImageSignatures) {
    const auto bytes = [](std::string_view s) {
        return std::vector<std::uint8_t>(s.begin(), s.end());
    };
    using namespace std::string_view_literals;
    const std::pair<std::vector<std::uint8_t>, std::string_view> cases[] = {
        {bytes("\x89PNG\r\n\x1a\n\0\0\0\rIHDR"sv), kTypePNG},
        {bytes("\xff\xd8\xff\xe0\0\x10JFIF"sv), kTypeJPEG},
        {bytes("GIF89a\x01\0"sv), kTypeGIF},
        {bytes("RIFF\x24\0\0\0WEBPVP8 "sv), kTypeWebP},
        {bytes("RIFF\x24\0\0\0WAVEfmt "sv), ""},
        {bytes("II*\0\x08\0\0\0"sv), kTypeTIFF},
        {bytes("\0\0\0\x18"
               "ftypheic"sv),
         kTypeHEIC},
        {bytes("\x89PNG"sv), ""},
        {bytes("hello, world"sv), ""},
        {{}, ""},
    };
    for (const auto& [data, type] : cases) {
        SCOPED_TRACE(type);
        EXPECT_EQ(imageTypeForContents(data), type);
    }
}

} // namespace
