// XDG base directories: where data and configuration live for this user.
#pragma once

#include <filesystem>

namespace tasket::platform {

/// $XDG_DATA_HOME, else $HOME/.local/share.
std::filesystem::path xdgDataHome();
/// $XDG_CONFIG_HOME, else $HOME/.config.
std::filesystem::path xdgConfigHome();
/// $XDG_RUNTIME_DIR, else the system temporary directory.
std::filesystem::path xdgRuntimeDir();

} // namespace tasket::platform
