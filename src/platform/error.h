// The one error catalogue of the project. Failures that callers handle come
// back as std::expected<T, Error>; the message says what failed and why.
#pragma once

#include <expected>
#include <string>
#include <utility>

namespace tasket::platform {

enum class Errc {
    invalidArgument,  // the caller passed something malformed
    notFound,         // a named thing does not exist
    ioError,          // the file system refused
    permissionDenied, // a path cannot be read or written
    storeError,       // SQLite reported an error
    storeCorrupt,     // the store file is not a database or is damaged
    schemaTooNew,     // the store was written by a newer program
    conflict,         // an optimistic-lock conflict the merge policy refused
    validation,       // an object or model failed validation
    unavailable,      // a service or suite cannot be reached
    parseError,       // text that does not follow its grammar
    cancelled,
};

struct Error {
    Errc code;
    std::string message;
};

template <class T = void> using Result = std::expected<T, Error>;

[[nodiscard]] inline std::unexpected<Error> fail(Errc code, std::string message) {
    return std::unexpected(Error{code, std::move(message)});
}

} // namespace tasket::platform
