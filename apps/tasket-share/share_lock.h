// The app lock as tasket-share meets it. A share may still be saved while
// the lock is on, since saving reveals nothing, but nothing it prints names
// a list of the store: the terminal prompt (which lists them) is refused, a
// list that is not found is not answered with the lists there are, and the
// saved task is reported without its list. The form shows the locked
// screen until the user unlocks.
#pragma once

#include "common/task_report.h"
#include "platform/error.h"
#include "services/authentication_manager.h"

#include <string_view>

namespace tasket::apps {

/// Why a locked share does not ask on the terminal.
inline constexpr std::string_view kLockedPromptMessage =
    "the app lock is on, so the lists cannot be shown to choose from; give --yes "
    "(and --list NAME) to save without seeing them";

/// `failure` of finding the list `named`, without the store's lists.
platform::Error withoutLists(const platform::Error& failure, std::string_view named);
/// `task` with its list left out.
TaskReport withoutList(TaskReport task);

} // namespace tasket::apps
