#include "platform/extension/png_only_image_converter.h"

#include <gtest/gtest.h>

#include <string>

using namespace tasket::platform;

namespace {

Bytes bytes(std::string_view s) {
    return Bytes(s.begin(), s.end());
}

TEST(PngOnlyImageConverter, PassesPngThroughAndRefusesTheRest) {
    using namespace std::string_view_literals;
    const Bytes png = bytes(
        "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0\x1f\x15\xc4\x89"sv);
    const PngOnlyImageConverter converter;
    EXPECT_EQ(converter.convertToPNG(png), png);

    const std::pair<std::string, Bytes> refused[] = {
        {"JPEG", bytes("\xff\xd8\xff\xe0\0\x10JFIF\0"sv)},
        {"signature only", bytes("\x89PNG\r\n\x1a\n"sv)},
        {"no header chunk",
         bytes("\x89PNG\r\n\x1a\n\0\0\0\x0dIDAT\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0\0\0\0\0"sv)},
        {"empty", {}},
    };
    for (const auto& [name, data] : refused) {
        SCOPED_TRACE(name);
        auto converted = converter.convertToPNG(data);
        ASSERT_FALSE(converted);
        EXPECT_EQ(converted.error().code, Errc::invalidArgument);
        EXPECT_NE(converted.error().message.find("cannot be decoded"), std::string::npos);
    }
}

} // namespace
