#include "tasket-share/share_lock.h"

#include "platform/auth/pam_authenticator.h"
#include "platform/preferences/file_preferences_suite.h"
#include "rules/texts.h"
#include "settings/settings_keys.h"

#include <fmt/format.h>

namespace tasket::apps {

std::shared_ptr<services::AuthenticationManager> openShareLock() {
    namespace keys = settings::keys;
    return std::make_shared<services::AuthenticationManager>(
        std::make_shared<settings::CustomizationManager>(
            platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite)),
            platform::FilePreferencesSuite::inConfigHome(std::string(keys::kStandardSuite))),
        std::make_shared<platform::PamAuthenticator>());
}

platform::Error withoutLists(const platform::Error& failure, std::string_view named) {
    if (failure.code != platform::Errc::notFound)
        return failure;
    return {failure.code, fmt::format("there is no list \"{}\" ({}: the lists are not shown)",
                                      named, rules::texts::kTasketIsLocked.translated())};
}

TaskReport withoutList(TaskReport task) {
    task.list = fmt::format("({})", rules::texts::kTasketIsLocked.translated());
    task.listID.clear();
    return task;
}

} // namespace tasket::apps
