#include "common/qt_image_converter.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using tasket::apps::QtImageConverter;
using tasket::platform::Bytes;
using tasket::platform::Errc;

namespace {

class QtImageConverterTest : public ::testing::Test {
  protected:
    // Decoding needs no display and no application object.
    static void SetUpTestSuite() {
        ::unsetenv("DISPLAY");
        ::unsetenv("WAYLAND_DISPLAY");
    }

    static QImage picture() {
        QImage image(8, 6, QImage::Format_RGB32);
        image.fill(QColor(200, 40, 10));
        image.setPixelColor(0, 0, QColor(0, 0, 255));
        return image;
    }

    static Bytes encode(const QImage& image, const char* format) {
        QByteArray data;
        QBuffer buffer(&data);
        buffer.open(QIODevice::WriteOnly);
        EXPECT_TRUE(QImageWriter(&buffer, format).write(image)) << format;
        return Bytes(data.begin(), data.end());
    }

    static QImage decodePNG(const Bytes& png) {
        QImage image;
        EXPECT_TRUE(image.loadFromData(png.data(), static_cast<int>(png.size()), "PNG"));
        return image;
    }

    QtImageConverter m_converter;
};

TEST_F(QtImageConverterTest, ConvertsReadableFormatsToPNG) {
    // Qt reads GIF but does not write it: a one-pixel GIF, written out.
    const Bytes gif{'G', 'I', 'F',  '8',  '9',  'a',  1,    0, 1, 0, 0x80, 0,    0, 0,
                    0,   0,   0xff, 0xff, 0xff, 0x21, 0xf9, 4, 1, 0, 0,    0,    0, 0x2c,
                    0,   0,   0,    0,    1,    0,    1,    0, 0, 2, 1,    0x44, 0, 0x3b};
    auto fromGif = m_converter.convertToPNG(gif);
    ASSERT_TRUE(fromGif) << fromGif.error().message;
    EXPECT_EQ(decodePNG(*fromGif).size(), QSize(1, 1));

    for (const char* format : {"JPEG", "PNG", "BMP", "WEBP", "TIFF"}) {
        SCOPED_TRACE(format);
        // WebP and TIFF come from qt6-image-formats-plugins (scripts/bootstrap).
        ASSERT_TRUE(QImageWriter::supportedImageFormats().contains(QByteArray(format).toLower()));
        auto png = m_converter.convertToPNG(encode(picture(), format));
        ASSERT_TRUE(png) << png.error().message;
        ASSERT_GE(png->size(), 8u);
        EXPECT_EQ(std::string(png->begin(), png->begin() + 8), std::string("\x89PNG\r\n\x1a\n", 8));
        const QImage decoded = decodePNG(*png);
        EXPECT_EQ(decoded.size(), QSize(8, 6));
        // Lossy formats move colours a little.
        EXPECT_NEAR(decoded.pixelColor(4, 3).red(), 200, 12);
    }
}

TEST_F(QtImageConverterTest, LeavesTextAndResolutionBehind) {
    QImage tagged = picture();
    tagged.setText("Comment", "private note");
    tagged.setDotsPerMeterX(11811);
    tagged.setDotsPerMeterY(11811);
    auto png = m_converter.convertToPNG(encode(tagged, "PNG"));
    ASSERT_TRUE(png);
    const std::string text(png->begin(), png->end());
    EXPECT_EQ(text.find("private note"), std::string::npos);
    const QImage decoded = decodePNG(*png);
    EXPECT_NE(decoded.dotsPerMeterX(), 11811);
    EXPECT_EQ(decoded.pixelColor(0, 0), QColor(0, 0, 255));
}

TEST_F(QtImageConverterTest, RefusesBytesThatAreNoPicture) {
    Bytes truncatedJpeg = encode(picture(), "JPEG");
    truncatedJpeg.resize(20);
    const std::pair<std::string, Bytes> cases[] = {
        {"garbage", Bytes{'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'}},
        {"empty", {}},
        {"truncated JPEG", truncatedJpeg},
        {"PNG signature only", Bytes{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'}},
    };
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        auto png = m_converter.convertToPNG(bytes);
        ASSERT_FALSE(png);
        EXPECT_EQ(png.error().code, Errc::invalidArgument);
        EXPECT_THAT(png.error().message, ::testing::HasSubstr("cannot be decoded"));
    }
}

} // namespace
