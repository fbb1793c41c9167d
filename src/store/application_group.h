// The application-group container: the folder that this program and the
// main application share, holding the store file. On Linux it is
// $XDG_DATA_HOME/group.QRX-Lumenforge.Tasket/, private to the user.
#pragma once

#include "platform/error.h"

#include <filesystem>
#include <string_view>

namespace tasket::store {

inline constexpr std::string_view kApplicationGroup = "group.QRX-Lumenforge.Tasket";

/// Makes sure the group container under `dataHome` exists and can be written,
/// creating it (and missing parents) when absent; the container itself is
/// created with mode 0700, an existing one is left as it is. Returns its
/// path; fails with a message naming the folder and the reason.
[[nodiscard]] platform::Result<std::filesystem::path>
prepareApplicationGroupContainer(const std::filesystem::path& dataHome);

/// The group container of this process under $XDG_DATA_HOME, prepared on the
/// first call and kept for the life of the process. When it cannot be had the
/// process stops (platform::fatal) with the reason.
const std::filesystem::path& applicationGroupContainerURL();

} // namespace tasket::store
