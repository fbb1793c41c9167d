// The process stop. A failure that leaves the program unable to work (no
// group container, a store that will not load) goes through fatal(), which
// prints the exact message on standard error and exits non-zero. Tests swap
// the handler for one that throws, so the stop can be observed.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tasket::platform {

using FatalHandler = std::function<void(const std::string& message)>;

/// Stops the process with `message`. Never returns: if a replaced handler
/// returns, the process aborts.
[[noreturn]] void fatal(std::string_view message);

/// Replaces the handler; returns the previous one. Thread-safe.
FatalHandler setFatalHandler(FatalHandler handler);

/// The default: message and a newline on standard error, exit status 70.
void defaultFatalHandler(const std::string& message);

/// A problem the program works around: "<program>: message" on standard
/// error, named after the running program.
void warn(std::string_view message);

} // namespace tasket::platform
