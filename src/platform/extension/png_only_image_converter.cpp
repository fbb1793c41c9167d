#include "platform/extension/png_only_image_converter.h"

#include "platform/extension/type_identifier.h"

#include <algorithm>
#include <array>

namespace tasket::platform {

Result<Bytes> PngOnlyImageConverter::convertToPNG(std::span<const std::uint8_t> encoded) const {
    // Signature (8 bytes), then the IHDR chunk: length 13, type "IHDR".
    constexpr std::array<std::uint8_t, 8> kHeader{0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    const bool isPNG = imageTypeForContents(encoded) == kTypePNG &&
                       encoded.size() >= 8 + 8 + 13 + 4 &&
                       std::ranges::equal(encoded.subspan(8, kHeader.size()), kHeader);
    if (!isPNG)
        return fail(
            Errc::invalidArgument,
            "the image cannot be decoded: only PNG data is read here, and these bytes are not PNG");
    return Bytes(encoded.begin(), encoded.end());
}

} // namespace tasket::platform
