#include "services/authentication_manager.h"

#include "platform/auth/pam_module.h"
#include "platform/preferences/file_preferences_suite.h"
#include "rules/texts.h"
#include "settings/settings_keys.h"

#include <stdexcept>

namespace tasket::services {

namespace texts = rules::texts;

AuthenticationManager::AuthenticationManager(
    std::shared_ptr<settings::CustomizationManager> customizationManager,
    std::shared_ptr<platform::Authenticator> authenticator)
    : m_customizationManager(std::move(customizationManager)),
      m_authenticator(std::move(authenticator)) {
    if (!m_customizationManager || !m_authenticator)
        throw std::invalid_argument("AuthenticationManager needs its settings and authenticator");
    m_isEnabled.set(m_customizationManager->value(settings::catalog::isAuthenticationEnabled));
}

std::shared_ptr<AuthenticationManager> AuthenticationManager::openUserLock() {
    namespace keys = settings::keys;
    return std::make_shared<AuthenticationManager>(
        std::make_shared<settings::CustomizationManager>(
            platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite)),
            platform::FilePreferencesSuite::inConfigHome(std::string(keys::kStandardSuite))),
        platform::openPamAuthenticator());
}

platform::Result<> AuthenticationManager::canAuthenticate() const {
    return m_authenticator->canEvaluate();
}

platform::Result<> AuthenticationManager::authenticate(const Answer& answer, const Inform& inform) {
    // evaluate() fails as canEvaluate() would when authentication cannot run.
    return m_authenticator->evaluate({.reason = texts::kUnlockReason.translated(),
                                      .fallbackTitle = texts::kEnterYourPassword.translated(),
                                      .answer = answer,
                                      .inform = inform});
}

platform::Result<> AuthenticationManager::unlock(const Answer& answer, const Inform& inform) {
    if (auto done = authenticate(answer, inform); !done)
        return done;
    if (!m_isUnlocked.value())
        m_isUnlocked.set(true);
    return {};
}

platform::Result<> AuthenticationManager::setEnabled(bool enabled, const Answer& answer,
                                                     const Inform& inform) {
    if (auto done = authenticate(answer, inform); !done)
        return done;
    // Written through the suite, not setValue(), so a failed write is reported.
    const auto& suite = m_customizationManager->appGroupSuite();
    if (auto stored = suite->setValue(settings::keys::kIsAuthenticationEnabled, enabled); !stored)
        return stored;
    m_isEnabled.set(enabled);
    if (!m_isUnlocked.value())
        m_isUnlocked.set(true);
    return {};
}

void AuthenticationManager::lock() {
    if (m_isUnlocked.value())
        m_isUnlocked.set(false);
}

} // namespace tasket::services
