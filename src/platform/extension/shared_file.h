// The checks a shared file passes before it can become an attachment: it
// exists, is a regular file (not a directory, device, FIFO or socket), can
// be read, and is no larger than an attachment may be. Attachments live in
// the store file itself, hence the limit.
#pragma once

#include "platform/error.h"
#include "platform/extension/item_provider.h"

#include <cstdint>
#include <filesystem>
#include <istream>
#include <string_view>

namespace tasket::platform {

/// The largest file or image an attachment may hold: 64 MiB.
inline constexpr std::uintmax_t kMaxSharedFileSize = std::uintmax_t{64} * 1024 * 1024;

/// The size of the regular file at `path` (symbolic links followed) after
/// opening it for reading. Fails, with a message naming `displayName`,
/// with notFound when nothing is there; invalidArgument for a directory,
/// device, FIFO or socket, or a file over `maxSize`; permissionDenied when
/// it cannot be read; ioError for anything else the system refuses.
[[nodiscard]] Result<std::uintmax_t> checkSharedFile(const std::filesystem::path& path,
                                                     std::string_view displayName,
                                                     std::uintmax_t maxSize = kMaxSharedFileSize);

/// The bytes of the file at `path`, after the same checks; also refused
/// when more than `maxSize` bytes turn up while reading (files whose size
/// the system does not know in advance).
[[nodiscard]] Result<Bytes> readSharedFile(const std::filesystem::path& path,
                                           std::string_view displayName,
                                           std::uintmax_t maxSize = kMaxSharedFileSize);

/// Everything left in `in`, refused (invalidArgument) beyond `maxSize`
/// bytes and (ioError) when the stream fails.
[[nodiscard]] Result<Bytes> readSharedStream(std::istream& in, std::string_view displayName,
                                             std::uintmax_t maxSize = kMaxSharedFileSize);

} // namespace tasket::platform
