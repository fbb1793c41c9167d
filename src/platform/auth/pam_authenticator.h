// The Linux adapter of the authentication port: the current user proves who
// they are to PAM through the service "tasket" (pam_authenticate, then
// pam_acct_mgmt, so an expired or locked account is refused too). Whatever
// the user's stack asks (a password, a fingerprint) goes through the
// request's conversation. <security/pam_appl.h> stays out of this header.
#pragma once

#include "platform/auth/authenticator.h"

#include <filesystem>

namespace tasket::platform {

class PamAuthenticator final : public Authenticator {
  public:
    struct Options {
        /// The PAM service, whose file names the stack.
        std::string service = "tasket";
        /// Who authenticates; empty: the user this process runs as.
        std::string user = {};
        /// Service files from this folder only (pam_start_confdir); empty:
        /// the system's (/etc/pam.d), where a missing service file makes
        /// PAM fall back to its "other" stack.
        std::filesystem::path configurationFolder = {};
    };

    PamAuthenticator() : PamAuthenticator(Options{}) {}
    explicit PamAuthenticator(Options options);

    /// Fails when the user is unknown or PAM cannot start the service (no
    /// service file in the configuration folder, a broken configuration).
    [[nodiscard]] Result<> canEvaluate() const override;
    [[nodiscard]] Result<> evaluate(const AuthenticationRequest& request) override;

  private:
    struct Session;
    [[nodiscard]] Result<std::string> userName() const;
    /// Starts a transaction whose conversation data is `conversation`.
    [[nodiscard]] Result<> start(Session& session, void* conversation) const;

    Options m_options;
};

} // namespace tasket::platform
