// tasket-notifier from its arguments to its exit status: takes the
// session's one daemon name, opens the store and the queue of pending
// reminders, and runs the daemon's loop over the session bus, the wall-clock
// timer and the main queue until it is stopped (SIGTERM, SIGINT).
#pragma once

#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace tasket::apps {

/// Runs the program with `arguments` (without the program name) and
/// returns its exit status (see --help).
int runNotifierProgram(std::span<const std::string> arguments, std::ostream& out,
                       std::ostream& err);

} // namespace tasket::apps
