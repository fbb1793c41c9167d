// An image converter that decodes nothing: PNG data passes through as it
// is, anything else is refused as undecodable. Good enough where a test or
// a tool needs the converter's contract without a picture decoder.
#pragma once

#include "platform/extension/image_converter.h"

namespace tasket::platform {

class PngOnlyImageConverter final : public ImageConverter {
  public:
    /// `encoded` itself when it starts with the PNG signature and a header
    /// chunk; invalidArgument otherwise.
    [[nodiscard]] Result<Bytes> convertToPNG(std::span<const std::uint8_t> encoded) const override;
};

} // namespace tasket::platform
