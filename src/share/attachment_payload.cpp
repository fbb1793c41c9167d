#include "share/attachment_payload.h"

#include "platform/clock.h"
#include "platform/uuid.h"

#include <fmt/format.h>

namespace tasket::share {

using platform::Errc;

platform::Result<AttachmentPayload> makeFilePayload(const platform::Url& fileURL,
                                                    rules::TK_AttachmentType type,
                                                    std::uintmax_t maxSize) {
    const auto path = fileURL.filePath();
    if (!path)
        return platform::fail(Errc::invalidArgument,
                              fmt::format("cannot share \"{}\": it names no file on this computer",
                                          fileURL.absoluteString()));
    auto bytes = platform::readSharedFile(*path, path->string(), maxSize);
    if (!bytes)
        return std::unexpected(bytes.error());
    return AttachmentPayload{
        .identifier = platform::Uuid::generate().toString(),
        .title = fileURL.lastPathComponentDeletingExtension(),
        .fileExtension = fileURL.pathExtension(),
        .type = type,
        .content = std::move(*bytes),
        .creationDate = platform::Clock::shared().now(),
    };
}

platform::Result<AttachmentPayload>
makeInMemoryImagePayload(std::span<const std::uint8_t> encoded,
                         const platform::ImageConverter& converter) {
    auto png = converter.convertToPNG(encoded);
    if (!png)
        return platform::fail(png.error().code,
                              fmt::format("cannot share the picture: {}", png.error().message));
    return AttachmentPayload{
        .identifier = platform::Uuid::generate().toString(),
        .title = {},
        .fileExtension = "png",
        .type = rules::TK_AttachmentType::image,
        .content = std::move(*png),
        .creationDate = platform::Clock::shared().now(),
    };
}

} // namespace tasket::share
