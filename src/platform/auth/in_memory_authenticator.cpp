#include "platform/auth/in_memory_authenticator.h"

namespace tasket::platform {

InMemoryAuthenticator::InMemoryAuthenticator(std::optional<std::string> password)
    : m_password(std::move(password)) {}

Result<> InMemoryAuthenticator::canEvaluate() const {
    const std::scoped_lock lock(m_mutex);
    if (!m_password)
        return fail(Errc::unavailable, "no authentication is set up");
    return {};
}

Result<> InMemoryAuthenticator::evaluate(const AuthenticationRequest& request) {
    if (auto can = canEvaluate(); !can)
        return can;
    {
        const std::scoped_lock lock(m_mutex);
        ++m_questionsAsked;
    }
    const auto answer = request.answer
                            ? request.answer({.text = std::string(request.fallbackTitle)})
                            : std::nullopt;
    if (!answer)
        return fail(Errc::cancelled, "authentication was cancelled");
    const std::scoped_lock lock(m_mutex);
    if (*answer != *m_password)
        return fail(Errc::permissionDenied, "authentication failed");
    return {};
}

int InMemoryAuthenticator::questionsAsked() const {
    const std::scoped_lock lock(m_mutex);
    return m_questionsAsked;
}

} // namespace tasket::platform
