// The programs' exit statuses, after the BSD sysexits convention that shell
// scripts and service managers already know, and the mapping from the
// error catalogue to them.
#pragma once

#include "platform/error.h"

namespace tasket::apps {

enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailure = 1,       // nothing more specific applies
    kExitUsage = 64,        // the command line is wrong
    kExitDataError = 65,    // the input or the store holds something unusable
    kExitNoInput = 66,      // a named file, list or task does not exist
    kExitUnavailable = 69,  // a service cannot be reached
    kExitSoftware = 70,     // an internal error; also the process stop
    kExitIOError = 74,      // reading or writing failed
    kExitTemporary = 75,    // try again: a concurrent change won
    kExitNoPermission = 77, // the system refused access
    kExitLocked = 79,       // the app lock is on and cannot be opened here
};

/// The exit status for a failure with `code`.
ExitCode exitCodeFor(platform::Errc code);

} // namespace tasket::apps
