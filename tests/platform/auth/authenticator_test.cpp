// The PAM adapter of the authentication port, over the tests' own service
// files (pam_start_confdir) and through pam_wrapper with a real password
// check. The in-memory adapter is driven through AuthenticationManager's
// tests.
#include "platform/auth/pam_module.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

using namespace tasket::platform;

namespace {

AuthenticationRequest answering(std::optional<std::string> answer, int& asked) {
    return {.reason = "unlock your secured data",
            .fallbackTitle = "Enter your password",
            .answer = [answer, &asked](const AuthenticationPrompt&) {
                ++asked;
                return answer;
            }};
}

} // namespace

// pam_permit and pam_deny decide without asking; a folder without the
// service file cannot evaluate at all, and never lets the user in.
TEST(PamAuthenticator, FollowsTheServiceFile) {
    struct Case {
        std::optional<std::string> serviceFile; // nullopt: no file
        std::optional<Errc> failure;            // nullopt: authenticated
    };
    const Case cases[] = {
        {"auth required pam_permit.so\naccount required pam_permit.so\n", std::nullopt},
        {"auth required pam_deny.so\naccount required pam_permit.so\n", Errc::permissionDenied},
        {"auth required pam_permit.so\naccount required pam_deny.so\n", Errc::permissionDenied},
        {std::nullopt, Errc::unavailable},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.serviceFile.value_or("(none)"));
        tasket::testing::TempDir dir;
        if (c.serviceFile)
            std::ofstream(dir / "tasket") << *c.serviceFile;
        const auto pam = openPamAuthenticator({.configurationFolder = dir.path()});
        EXPECT_EQ(pam->canEvaluate().has_value(), c.serviceFile.has_value());
        int asked = 0;
        const auto result = pam->evaluate(answering("anything", asked));
        EXPECT_EQ(result ? std::nullopt : std::optional(result.error().code), c.failure)
            << (result ? "" : result.error().message);
    }
}

// A real password check: pam_wrapper, preloaded into a second run of this
// program, reads the service file from PAM_WRAPPER_SERVICE_DIR, whose
// pam_matrix module checks the answer against a password file written here.
TEST(PamAuthenticator, ChecksThePasswordThroughTheUsersStack) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "pam_wrapper opens libpam with RTLD_DEEPBIND, which AddressSanitizer refuses";
#endif
    if (!std::getenv("PAM_WRAPPER")) {
        tasket::testing::TempDir home;
        const auto run = tasket::testing::runProgram(
            "/proc/self/exe", {"--gtest_filter=PamAuthenticator.ChecksThePassword*"},
            {.home = home.path(),
             .environment = {"LD_PRELOAD=" PAM_WRAPPER_LIBRARY, "PAM_WRAPPER=1",
                             "PAM_WRAPPER_SERVICE_DIR=" PAM_WRAPPER_SERVICE_DIR,
                             "PAM_WRAPPER_DISABLE_DEEPBIND=1",
                             "ASAN_OPTIONS=verify_asan_link_order=0"}});
        EXPECT_EQ(run.status, 0) << run.out << run.err;
        EXPECT_NE(run.out.find("[  PASSED  ] 1 test"), std::string::npos) << run.out;
        return;
    }
    tasket::testing::TempDir dir;
    const std::string user = getpwuid(getuid())->pw_name;
    std::ofstream(dir / "passdb") << user << ":correct horse:tasket\n";
    ::setenv("PAM_MATRIX_PASSWD", (dir / "passdb").c_str(), 1);

    struct Case {
        std::optional<std::string> answer; // nullopt: the user cancels
        std::optional<Errc> failure;
    };
    const Case cases[] = {
        {"correct horse", std::nullopt},
        {"correct hors", Errc::permissionDenied},
        {"", Errc::permissionDenied},
        {std::nullopt, Errc::cancelled},
    };
    const auto pam = openPamAuthenticator();
    ASSERT_TRUE(pam->canEvaluate());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answer.value_or("(cancelled)"));
        std::vector<AuthenticationPrompt> prompts;
        const auto result = pam->evaluate({.reason = "unlock your secured data",
                                           .fallbackTitle = "Enter your password",
                                           .answer = [&](const AuthenticationPrompt& prompt) {
                                               prompts.push_back(prompt);
                                               return c.answer;
                                           }});
        EXPECT_EQ(result ? std::nullopt : std::optional(result.error().code), c.failure)
            << (result ? "" : result.error().message);
        ASSERT_EQ(prompts.size(), 1u);
        EXPECT_FALSE(prompts.front().echo);
    }
}
