// The PAM module's one exported function (see pam_module.h).
#include "platform/auth/pam_module.h"

namespace {

using namespace tasket::platform;

std::shared_ptr<Authenticator> makePam(PamAuthenticator::Options options) {
    return std::make_shared<PamAuthenticator>(std::move(options));
}

constexpr AuthenticatorFactories kFactories{.version = AuthenticatorFactories::kVersion,
                                            .pam = makePam};

} // namespace

extern "C" __attribute__((visibility("default"))) const AuthenticatorFactories*
tasket_authenticator_factories() {
    return &kFactories;
}
