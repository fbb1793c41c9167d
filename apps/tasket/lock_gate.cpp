#include "tasket/lock_gate.h"

#include "common/exit_code.h"
#include "rules/texts.h"
#include "tasket/terminal_password.h"

#include <fmt/format.h>

namespace tasket::apps {
namespace {

namespace texts = rules::texts;

platform::Result<> onTerminal(
    const std::function<platform::Result<>(const services::AuthenticationManager::Answer&,
                                           const services::AuthenticationManager::Inform&)>& act) {
    const auto terminal = TerminalPassword::open();
    if (!terminal)
        return platform::fail(platform::Errc::unavailable,
                              "there is no terminal to authenticate on");
    terminal->say(fmt::format("{} ({})", texts::kEnterYourPassword.translated(),
                              texts::kUnlockReason.translated()));
    return act([&](const platform::AuthenticationPrompt& prompt) { return terminal->ask(prompt); },
               [&](std::string_view message) { terminal->say(message); });
}

} // namespace

platform::Result<> unlockOnTerminal(services::AuthenticationManager& lock) {
    return onTerminal(
        [&](const auto& answer, const auto& inform) { return lock.unlock(answer, inform); });
}

platform::Result<> switchOnTerminal(services::AuthenticationManager& lock, bool enabled) {
    return onTerminal([&](const auto& answer, const auto& inform) {
        return lock.setEnabled(enabled, answer, inform);
    });
}

std::optional<int> requireUnlocked(std::ostream& err) {
    const auto lock = services::AuthenticationManager::openUserLock();
    if (!lock->isLocked())
        return std::nullopt;
    auto unlocked = unlockOnTerminal(*lock);
    if (unlocked)
        return std::nullopt;
    err << fmt::format("tasket: {}: {}\n", texts::kTasketIsLocked.translated(),
                       unlocked.error().message);
    switch (unlocked.error().code) {
    case platform::Errc::cancelled:
    case platform::Errc::permissionDenied: return kExitNoPermission;
    default: return kExitLocked;
    }
}

} // namespace tasket::apps
