// The port to the device owner's authentication: may the user be asked, and
// ask them. Adapters: PamAuthenticator (the user's own PAM stack, so a
// password, a fingerprint reader or anything else the system is set up for)
// and InMemoryAuthenticator (a known password, for tests and for programs
// that want no system authentication).
//
// Contract shared by every adapter:
// - canEvaluate() fails with unavailable (saying why) when asking cannot
//   work at all: nothing set up, unknown user, a broken configuration.
// - evaluate() asks through the request's conversation and succeeds only when
//   the user proved who they are. A conversation that gives no answer fails
//   with cancelled; a wrong answer with permissionDenied; a stack that cannot
//   evaluate with unavailable. It never succeeds without asking.
#pragma once

#include "platform/error.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tasket::platform {

/// One question the authentication asks ("Password: ").
struct AuthenticationPrompt {
    std::string text;
    bool echo = false; // whether the answer may be shown as it is typed
};

/// What the asking program shows and how it answers.
struct AuthenticationRequest {
    /// Why the program asks ("unlock your secured data").
    std::string_view reason;
    /// The title of the password question ("Enter your password").
    std::string_view fallbackTitle;
    /// Answers one question; nullopt cancels the authentication.
    std::function<std::optional<std::string>(const AuthenticationPrompt&)> answer;
    /// Shows a message of the stack ("Place your finger on the reader"); may be empty.
    std::function<void(std::string_view)> inform = {};
};

class Authenticator {
  public:
    virtual ~Authenticator() = default;

    /// Succeeds when the user can be asked; fails with unavailable and why not.
    [[nodiscard]] virtual Result<> canEvaluate() const = 0;
    /// Asks the user; succeeds when they authenticated (see the contract above).
    [[nodiscard]] virtual Result<> evaluate(const AuthenticationRequest& request) = 0;
};

} // namespace tasket::platform
