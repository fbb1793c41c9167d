// Replacing a whole file so that a reader sees the old contents or the new,
// never a mix, and two writers never share a temporary file.
#pragma once

#include "platform/error.h"

#include <sys/types.h>

#include <filesystem>
#include <string_view>

namespace tasket::platform {

/// Writes `contents` to a temporary file of its own beside `file` (hidden:
/// its name starts with a dot), flushes it to disk, renames it over `file`
/// and flushes the folder. On failure `file` is as it was and no temporary
/// file is left.
[[nodiscard]] Result<void> replaceFile(const std::filesystem::path& file, std::string_view contents,
                                       mode_t mode = 0600);

} // namespace tasket::platform
