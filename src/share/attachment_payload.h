// An attachment taken from the shared input, held as values until Done
// turns it into a TK_Attachment of the new task: a file read in full, or a
// picture (stored as PNG when it arrived in memory).
#pragma once

#include "platform/date.h"
#include "platform/error.h"
#include "platform/extension/image_converter.h"
#include "platform/extension/shared_file.h"
#include "platform/extension/url.h"
#include "rules/attachment_enumerations.h"

#include <cstdint>
#include <span>
#include <string>

namespace tasket::share {

struct AttachmentPayload {
    std::string identifier; // a new UUID, upper case
    std::string title;      // the file name without its extension; empty for a picture from memory
    std::string fileExtension;
    rules::TK_AttachmentType type = rules::TK_AttachmentType::file;
    platform::Bytes content;
    platform::Date creationDate;
};

/// The payload of the file that `fileURL` names: title = last path
/// component without its extension (a name without one kept whole),
/// fileExtension = the URL's path extension, content = the file's bytes,
/// a new identifier and now. `type` says whether it is kept as a file or
/// an image. Fails, naming the file, when it cannot be read or is over
/// `maxSize` (platform::readSharedFile).
[[nodiscard]] platform::Result<AttachmentPayload>
makeFilePayload(const platform::Url& fileURL,
                rules::TK_AttachmentType type = rules::TK_AttachmentType::file,
                std::uintmax_t maxSize = platform::kMaxSharedFileSize);

/// The payload of a picture held in memory: its PNG conversion, extension
/// "png", a new identifier and now. Fails with invalidArgument, saying the
/// image cannot be decoded, when `converter` refuses it.
[[nodiscard]] platform::Result<AttachmentPayload>
makeInMemoryImagePayload(std::span<const std::uint8_t> encoded,
                         const platform::ImageConverter& converter);

} // namespace tasket::share
