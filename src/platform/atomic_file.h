// Replacing a whole file so that a reader sees the old contents or the new,
// never a mix, and two writers never share a temporary file.
#pragma once

#include "platform/error.h"

#include <sys/types.h>

#include <filesystem>
#include <string_view>

namespace tasket::platform {

/// How far a replaced file is kept.
enum class Durability {
    flushed, // on disk when replaceFile returns, and the rename with it
    cache,   // written, not flushed: after a crash the old contents, the new, or an empty file
};

/// Writes `contents` to a temporary file of its own beside `file` (hidden:
/// its name starts with a dot), flushes it to disk, renames it over `file`
/// and flushes the folder (without flushing for a cache). On failure `file`
/// is as it was and no temporary file is left.
[[nodiscard]] Result<void> replaceFile(const std::filesystem::path& file, std::string_view contents,
                                       mode_t mode = 0600,
                                       Durability durability = Durability::flushed);

} // namespace tasket::platform
