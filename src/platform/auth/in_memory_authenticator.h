// An authenticator that knows the one password it accepts, with the same
// contract as the PAM adapter: it asks one question and checks the answer.
// Without a password it cannot evaluate, like a system with no service set
// up for the program.
#pragma once

#include "platform/auth/authenticator.h"

#include <mutex>

namespace tasket::platform {

class InMemoryAuthenticator final : public Authenticator {
  public:
    /// Accepts `password`; nullopt: nothing is set up, so it cannot evaluate.
    explicit InMemoryAuthenticator(std::optional<std::string> password);

    [[nodiscard]] Result<> canEvaluate() const override;
    [[nodiscard]] Result<> evaluate(const AuthenticationRequest& request) override;

    /// How many times the user has been asked.
    [[nodiscard]] int questionsAsked() const;

  private:
    mutable std::mutex m_mutex;
    std::optional<std::string> m_password;
    int m_questionsAsked = 0;
};

} // namespace tasket::platform
