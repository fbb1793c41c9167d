// XDG base directories: where data and configuration live for this user.
#pragma once

#include <filesystem>

namespace tasket::platform {

/// $XDG_DATA_HOME, else $HOME/.local/share.
[[nodiscard]] std::filesystem::path xdgDataHome();
/// $XDG_CONFIG_HOME, else $HOME/.config.
[[nodiscard]] std::filesystem::path xdgConfigHome();
/// $XDG_RUNTIME_DIR, else the system temporary directory.
[[nodiscard]] std::filesystem::path xdgRuntimeDir();

} // namespace tasket::platform
