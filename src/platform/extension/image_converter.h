// Turning an in-memory picture into PNG data, the form in which shared
// pictures are stored as attachments. The decoder lives outside the model
// layer (the share program supplies one built on its UI toolkit).
#pragma once

#include "platform/error.h"
#include "platform/extension/item_provider.h"

#include <cstdint>
#include <span>

namespace tasket::platform {

class ImageConverter {
  public:
    virtual ~ImageConverter();

    /// PNG data of the picture encoded in `encoded`, carrying no metadata.
    /// Fails with invalidArgument when the bytes are no picture this
    /// converter can decode (the message says so and names what it reads).
    [[nodiscard]] virtual Result<Bytes>
    convertToPNG(std::span<const std::uint8_t> encoded) const = 0;
};

} // namespace tasket::platform
