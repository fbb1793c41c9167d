#include "common/exit_code.h"

namespace tasket::apps {

ExitCode exitCodeFor(platform::Errc code) {
    using platform::Errc;
    // No default: a new error code must choose its exit status here.
    switch (code) {
    case Errc::invalidArgument:
    case Errc::parseError:
    case Errc::validation:
    case Errc::storeCorrupt:
    case Errc::schemaTooNew: return kExitDataError;
    case Errc::notFound: return kExitNoInput;
    case Errc::ioError:
    case Errc::storeError: return kExitIOError;
    case Errc::permissionDenied: return kExitNoPermission;
    case Errc::conflict: return kExitTemporary;
    case Errc::unavailable: return kExitUnavailable;
    case Errc::cancelled: return kExitFailure;
    }
    return kExitFailure;
}

} // namespace tasket::apps
