// The frame of the tasket program: builds the command line from the
// command table, parses it, runs the chosen command and returns the exit
// status. main() only hands it the arguments and the standard streams, so
// tests run the whole program in process.
#pragma once

#include <ostream>
#include <span>
#include <string>

namespace tasket::apps {

/// Runs tasket with `arguments` (without the program name). Help goes to
/// `out`; errors go to `err` as "tasket: message". Returns the exit status
/// (see common/exit_code.h): 0, 64 for a wrong command line, the status of
/// the command's failure, 70 for an internal error.
int runTasket(std::span<const std::string> arguments, std::ostream& out, std::ostream& err);

} // namespace tasket::apps
