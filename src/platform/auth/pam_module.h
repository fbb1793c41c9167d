// The PAM adapter is built as a module that a program loads the first time
// it authenticates (see platform/module_loader.h): PAM, and the audit and
// capability libraries it brings, are then not loaded and relocated at
// every start of a program that only checks whether the lock is on.
#pragma once

#include "platform/auth/pam_authenticator.h"

#include <memory>

namespace tasket::platform {

/// A PAM authenticator with `options`, loaded from its module when first
/// asked; when the module cannot be loaded, canEvaluate and evaluate fail
/// with `unavailable`, saying why.
[[nodiscard]] std::shared_ptr<Authenticator>
openPamAuthenticator(PamAuthenticator::Options options = {});

/// What the module hands over through its one exported function,
/// kAuthenticatorModuleEntry, which returns a pointer to it. The version
/// comes first, where the loader reads it.
struct AuthenticatorFactories {
    static constexpr int kVersion = 1;
    int version = kVersion;
    std::shared_ptr<Authenticator> (*pam)(PamAuthenticator::Options options) = nullptr;
};

inline constexpr const char* kAuthenticatorModuleEntry = "tasket_authenticator_factories";

} // namespace tasket::platform
