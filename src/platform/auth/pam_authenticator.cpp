#include "platform/auth/pam_authenticator.h"

#include <fmt/format.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace tasket::platform {
namespace {

// What the conversation function reaches through appdata_ptr.
struct Conversation {
    const AuthenticationRequest* request;
    bool cancelled = false;
};

// Answers PAM's questions through the request. Responses are malloc'ed, as
// PAM frees them; a question without an answer cancels the whole dialogue.
int converse(int count, const pam_message** messages, pam_response** responses, void* data) {
    auto& conversation = *static_cast<Conversation*>(data);
    if (count <= 0)
        return PAM_CONV_ERR;
    auto* replies = static_cast<pam_response*>(
        std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
    if (!replies)
        return PAM_BUF_ERR;
    const auto discard = [&] {
        for (int i = 0; i < count; ++i) {
            if (replies[i].resp) {
                explicit_bzero(replies[i].resp, std::strlen(replies[i].resp));
                std::free(replies[i].resp);
            }
        }
        std::free(replies);
    };
    for (int i = 0; i < count; ++i) {
        const pam_message& message = *messages[i];
        const std::string_view text = message.msg ? message.msg : "";
        switch (message.msg_style) {
        case PAM_PROMPT_ECHO_OFF:
        case PAM_PROMPT_ECHO_ON: {
            const auto& answer = conversation.request->answer;
            auto reply = answer
                             ? answer({std::string(text), message.msg_style == PAM_PROMPT_ECHO_ON})
                             : std::nullopt;
            if (!reply) {
                conversation.cancelled = true;
                discard();
                return PAM_CONV_ERR;
            }
            replies[i].resp = strdup(reply->c_str());
            explicit_bzero(reply->data(), reply->size());
            if (!replies[i].resp) {
                discard();
                return PAM_BUF_ERR;
            }
            break;
        }
        case PAM_ERROR_MSG:
        case PAM_TEXT_INFO:
            if (conversation.request->inform)
                conversation.request->inform(text);
            break;
        default: discard(); return PAM_CONV_ERR;
        }
    }
    *responses = replies;
    return PAM_SUCCESS;
}

// The failure of a PAM call: refusals of the user are permissionDenied,
// everything that says the stack could not decide is unavailable.
Error failureOf(pam_handle_t* handle, int status, std::string_view step) {
    const std::string why = pam_strerror(handle, status);
    switch (status) {
    case PAM_AUTH_ERR:
    case PAM_PERM_DENIED:
    case PAM_MAXTRIES:
    case PAM_ACCT_EXPIRED:
    case PAM_NEW_AUTHTOK_REQD:
    case PAM_USER_UNKNOWN:
        return {Errc::permissionDenied, fmt::format("authentication failed: {}", why)};
    default:
        return {Errc::unavailable,
                fmt::format("authentication cannot be used ({}: {})", step, why)};
    }
}

} // namespace

// One PAM transaction, ended with the status of its last call.
struct PamAuthenticator::Session {
    pam_handle_t* handle = nullptr;
    int status = PAM_SUCCESS;
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (handle)
            pam_end(handle, status);
    }
};

PamAuthenticator::PamAuthenticator(Options options) : m_options(std::move(options)) {}

Result<std::string> PamAuthenticator::userName() const {
    if (!m_options.user.empty())
        return m_options.user;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return fail(Errc::unavailable,
                    fmt::format("authentication cannot be used: user {} is unknown", getuid()));
    return std::string(found->pw_name);
}

Result<> PamAuthenticator::start(Session& session, void* conversation) const {
    const auto user = userName();
    if (!user)
        return std::unexpected(user.error());
    const pam_conv conv{&converse, conversation};
    const std::string& folder = m_options.configurationFolder.native();
    session.status =
        folder.empty() ? pam_start(m_options.service.c_str(), user->c_str(), &conv, &session.handle)
                       : pam_start_confdir(m_options.service.c_str(), user->c_str(), &conv,
                                           folder.c_str(), &session.handle);
    if (session.status != PAM_SUCCESS) {
        // Without a handle there is nothing to end, and no text for the status.
        session.handle = nullptr;
        return fail(Errc::unavailable,
                    fmt::format("authentication cannot be used: PAM cannot start the service "
                                "\"{}\"{}",
                                m_options.service,
                                folder.empty() ? std::string() : " in " + folder));
    }
    return {};
}

Result<> PamAuthenticator::canEvaluate() const {
    Session session;
    return start(session, nullptr);
}

Result<> PamAuthenticator::evaluate(const AuthenticationRequest& request) {
    Conversation conversation{&request};
    Session session;
    if (auto started = start(session, &conversation); !started)
        return started;
    session.status = pam_authenticate(session.handle, 0);
    if (conversation.cancelled)
        return fail(Errc::cancelled, "authentication was cancelled");
    if (session.status != PAM_SUCCESS)
        return std::unexpected(failureOf(session.handle, session.status, "pam_authenticate"));
    session.status = pam_acct_mgmt(session.handle, 0);
    if (session.status != PAM_SUCCESS)
        return std::unexpected(failureOf(session.handle, session.status, "pam_acct_mgmt"));
    return {};
}

} // namespace tasket::platform
