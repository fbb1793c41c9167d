// Whether the user's graphical session is locked, as logind tells it
// (the session's LockedHint, on the system bus).
#pragma once

#include <optional>

namespace tasket::platform {

/// True while the user's session is locked; nullopt when logind cannot
/// be asked (no system bus, no session).
[[nodiscard]] std::optional<bool> sessionIsLocked();

} // namespace tasket::platform
