// The app lock in front of tasket's commands: while the lock is on, a
// command that shows stored data runs only after the user authenticated on
// the terminal. Without a terminal, or when authentication cannot be used,
// the command does not run and the program ends with kExitLocked.
#pragma once

#include "services/authentication_manager.h"

#include <memory>
#include <optional>
#include <ostream>

namespace tasket::apps {

/// Asks through the terminal, when there is one. Fails (unavailable) without
/// a terminal.
[[nodiscard]] platform::Result<> unlockOnTerminal(services::AuthenticationManager& lock);
/// Switches the lock on or off after asking on the terminal.
[[nodiscard]] platform::Result<> switchOnTerminal(services::AuthenticationManager& lock,
                                                  bool enabled);

/// Nothing when the command may run (the lock is off, or the user just
/// unlocked it); else the exit status, with the reason written to `err`.
std::optional<int> requireUnlocked(std::ostream& err);

} // namespace tasket::apps
