// The app lock over the in-memory authenticator and suites: switching it,
// unlocking it, and staying locked whenever authentication does not succeed.
#include "platform/auth/in_memory_authenticator.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "services/authentication_manager.h"
#include "settings/settings_keys.h"

#include <gtest/gtest.h>

using namespace tasket;
using platform::Errc;

TEST(AuthenticationManager, OpensOnlyForTheOwner) {
    enum class Action { none, unlock, enable, disable };
    struct Case {
        const char* name;
        bool storedEnabled;
        std::optional<std::string> password; // nullopt: nothing set up
        Action action;
        std::optional<std::string> answer; // nullopt: cancelled
        std::optional<Errc> failure;
        bool enabledAfter;
        bool lockedAfter;
        int asked;
    };
    const Case cases[] = {
        {"off: nothing asks", false, "pw", Action::none, "pw", std::nullopt, false, false, 0},
        {"on: starts locked", true, "pw", Action::none, "pw", std::nullopt, true, true, 0},
        {"unlock", true, "pw", Action::unlock, "pw", std::nullopt, true, false, 1},
        {"wrong password", true, "pw", Action::unlock, "pW", Errc::permissionDenied, true, true, 1},
        {"cancelled", true, "pw", Action::unlock, std::nullopt, Errc::cancelled, true, true, 1},
        {"cannot evaluate", true, std::nullopt, Action::unlock, "pw", Errc::unavailable, true, true,
         0},
        {"switch on", false, "pw", Action::enable, "pw", std::nullopt, true, false, 1},
        {"switch on unset up", false, std::nullopt, Action::enable, "pw", Errc::unavailable, false,
         false, 0},
        {"switch off", true, "pw", Action::disable, "pw", std::nullopt, false, false, 1},
        {"switch off wrong", true, "pw", Action::disable, "x", Errc::permissionDenied, true, true,
         1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto group = std::make_shared<platform::InMemoryPreferencesSuite>("group");
        ASSERT_TRUE(group->setValue(settings::keys::kIsAuthenticationEnabled, c.storedEnabled));
        auto authenticator = std::make_shared<platform::InMemoryAuthenticator>(c.password);
        services::AuthenticationManager lock(
            std::make_shared<settings::CustomizationManager>(
                group, std::make_shared<platform::InMemoryPreferencesSuite>("standard")),
            authenticator);
        const auto answer = [&](const platform::AuthenticationPrompt& prompt) {
            EXPECT_EQ(prompt.text, "Enter your password");
            return c.answer;
        };
        platform::Result<> result;
        if (c.action == Action::unlock)
            result = lock.unlock(answer);
        else if (c.action != Action::none)
            result = lock.setEnabled(c.action == Action::enable, answer);
        EXPECT_EQ(result ? std::nullopt : std::optional(result.error().code), c.failure);
        EXPECT_EQ(lock.isEnabled().value(), c.enabledAfter);
        EXPECT_EQ(group->boolValue(settings::keys::kIsAuthenticationEnabled), c.enabledAfter);
        EXPECT_EQ(lock.isLocked(), c.lockedAfter);
        EXPECT_EQ(authenticator->questionsAsked(), c.asked);
        lock.lock();
        EXPECT_EQ(lock.isLocked(), c.enabledAfter);
    }
}
