// The image converter of the share program, built on Qt's image readers:
// whatever formats the installed plugins read (PNG, JPEG, GIF and BMP with
// Qt itself; WebP, TIFF and more with the image-format plugins) become PNG.
// Needs QtGui only, no application object and no display.
#pragma once

#include "platform/extension/image_converter.h"

namespace tasket::apps {

class QtImageConverter final : public platform::ImageConverter {
  public:
    /// PNG data of the decoded picture, turned upright as its orientation
    /// tag says, carrying no text chunks and only the default resolution.
    /// Fails with invalidArgument when no reader decodes the bytes, ioError
    /// when the PNG cannot be written. Thread-safe.
    [[nodiscard]] platform::Result<platform::Bytes>
    convertToPNG(std::span<const std::uint8_t> encoded) const override;
};

} // namespace tasket::apps
