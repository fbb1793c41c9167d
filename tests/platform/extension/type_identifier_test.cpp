// Recognising pictures: type identifiers and their hierarchy, image file
// extensions and signatures, and the converter that accepts PNG only.
#include "platform/extension/png_only_image_converter.h"
#include "platform/extension/type_identifier.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using namespace tasket::platform;
using namespace std::string_view_literals;

namespace {

Bytes bytes(std::string_view s) {
    return Bytes(s.begin(), s.end());
}

TEST(TypeIdentifier, ConformanceFollowsTheHierarchyAndExtensionsNameImages) {
    const std::tuple<std::string_view, std::string_view, bool> conformance[] = {
        {kTypeFileURL, kTypeURL, true},
        {kTypeFileURL, kTypeData, true},
        {kTypeURL, kTypeFileURL, false},
        {kTypeFileURL, kTypeImage, false},
        {kTypePNG, kTypeImage, true},
        {kTypeJPEG, kTypeData, true},
        {kTypeWebP, kTypeContent, true},
        {kTypeImage, kTypePNG, false},
        {kTypePNG, kTypeJPEG, false},
        {kTypeImage, kTypeImage, true},
        {kTypePlainText, kTypeURL, false},
        {"com.example.custom", "com.example.custom", true},
        {"com.example.custom", kTypeItem, false}};
    for (const auto& [type, to, conforms] : conformance)
        EXPECT_EQ(typeConforms(type, to), conforms) << type << " -> " << to;
    const std::pair<std::string_view, std::string_view> extensions[] = {
        {"png", kTypePNG},   {"JPG", kTypeJPEG}, {"jpeg", kTypeJPEG}, {"WebP", kTypeWebP},
        {"tiff", kTypeTIFF}, {"gif", kTypeGIF},  {"txt", ""},         {"", ""},
        {"pngx", ""}};
    for (const auto& [extension, type] : extensions)
        EXPECT_EQ(imageTypeForFileExtension(extension), type) << extension;
}

TEST(TypeIdentifier, RecognisesImageSignatures) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\x89PNG\r\n\x1a\n\0\0\0\rIHDR"sv, kTypePNG},
        {"\xff\xd8\xff\xe0\0\x10JFIF"sv, kTypeJPEG},
        {"GIF89a\x01\0"sv, kTypeGIF},
        {"RIFF\x24\0\0\0WEBPVP8 "sv, kTypeWebP},
        {"RIFF\x24\0\0\0WAVEfmt "sv, ""},
        {"II*\0\x08\0\0\0"sv, kTypeTIFF},
        {"\0\0\0\030ftypheic"sv, kTypeHEIC},
        {"\x89PNG"sv, ""},
        {"hello, world"sv, ""},
        {""sv, ""},
    };
    for (const auto& [data, type] : cases)
        EXPECT_EQ(imageTypeForContents(bytes(data)), type) << type;
}

TEST(PngOnlyImageConverter, PassesPngThroughAndRefusesTheRest) {
    const Bytes png = bytes(
        "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0\x1f\x15\xc4\x89"sv);
    const PngOnlyImageConverter converter;
    EXPECT_EQ(converter.convertToPNG(png), png);

    for (const auto data :
         {"\xff\xd8\xff\xe0\0\x10JFIF\0"sv, "\x89PNG\r\n\x1a\n"sv, ""sv,
          // no header chunk
          "\x89PNG\r\n\x1a\n\0\0\0\x0dIDAT\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0\0\0\0\0"sv}) {
        SCOPED_TRACE(data.size());
        auto converted = converter.convertToPNG(bytes(data));
        ASSERT_FALSE(converted);
        EXPECT_EQ(converted.error().code, Errc::invalidArgument);
        EXPECT_NE(converted.error().message.find("cannot be decoded"), std::string::npos);
    }
}

} // namespace
