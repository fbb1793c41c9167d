// AuthenticationManager: the app lock. When the user switches it on, the
// store's content stays hidden until they authenticate as the device owner
// (the authentication port: their PAM stack on Linux). It publishes
// isEnabled (the stored switch) and isUnlocked (authenticated since the lock
// last engaged); views show the content only while isEnabled is false or
// isUnlocked is true.
//
// A lock that cannot be evaluated (no service set up, unknown user) cannot
// be switched on, and an enabled one stays locked: unlock() then fails with
// the reason, never opens silently.
#pragma once

#include "platform/auth/authenticator.h"
#include "platform/published.h"
#include "settings/customization_manager.h"

#include <memory>

namespace tasket::services {

class AuthenticationManager {
  public:
    /// Answers one question of the authentication; nullopt cancels.
    using Answer = std::function<std::optional<std::string>(const platform::AuthenticationPrompt&)>;
    /// Shows a message of the authentication stack.
    using Inform = std::function<void(std::string_view)>;

    /// The lock over the stored switch of `customizationManager`'s group
    /// suite, asking through `authenticator` (neither may be null). Starts
    /// locked when the switch is on.
    AuthenticationManager(std::shared_ptr<settings::CustomizationManager> customizationManager,
                          std::shared_ptr<platform::Authenticator> authenticator);
    /// The user's lock: their settings suites in $XDG_CONFIG_HOME and the
    /// PAM service "tasket".
    static std::shared_ptr<AuthenticationManager> openUserLock();

    AuthenticationManager(const AuthenticationManager&) = delete;
    AuthenticationManager& operator=(const AuthenticationManager&) = delete;

    // ---- Published state ---------------------------------------------------------

    /// The lock is switched on.
    const platform::Published<bool>& isEnabled() const { return m_isEnabled; }
    /// The user authenticated since the lock last engaged.
    const platform::Published<bool>& isUnlocked() const { return m_isUnlocked; }
    /// Whether stored data must stay hidden now.
    [[nodiscard]] bool isLocked() const { return m_isEnabled.value() && !m_isUnlocked.value(); }

    // ---- Operations ----------------------------------------------------------------

    /// Whether the user can be asked at all; fails with unavailable and why.
    [[nodiscard]] platform::Result<> canAuthenticate() const;
    /// Asks the user ("Enter your password", to "unlock your secured data")
    /// and unlocks when they authenticate. A failed or cancelled
    /// authentication leaves the lock as it was and says why.
    [[nodiscard]] platform::Result<> unlock(const Answer& answer, const Inform& inform = {});
    /// Switches the lock on or off, after the user authenticated. Switching
    /// on fails when authentication cannot be evaluated; on success the
    /// switch is stored and the lock is open (the user just authenticated).
    /// Fails too when the setting cannot be stored.
    [[nodiscard]] platform::Result<> setEnabled(bool enabled, const Answer& answer,
                                                const Inform& inform = {});
    /// Engages the lock again (a new launch, the session coming back).
    void lock();

  private:
    [[nodiscard]] platform::Result<> authenticate(const Answer& answer, const Inform& inform);

    std::shared_ptr<settings::CustomizationManager> m_customizationManager;
    std::shared_ptr<platform::Authenticator> m_authenticator;
    platform::Published<bool> m_isEnabled;
    platform::Published<bool> m_isUnlocked{false};
};

} // namespace tasket::services
