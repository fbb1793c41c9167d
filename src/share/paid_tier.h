// The paid tier as the share intake meets it: whether the user bought it,
// as the flag in the application group's preferences says, and the texts
// of the notice shown when files or pictures were shared without it.
// Attachments are part of the paid tier.
#pragma once

#include "settings/customization_manager.h"

#include <functional>
#include <string>
#include <string_view>

namespace tasket::share {

/// The notice as one line of text, for a share without the form:
/// "<title>. <text> <what becomes of the files>".
std::string paidTierNotice();

/// Asked once per share; true when the paid tier is active.
using PaidTierCheck = std::function<bool()>;

/// True when the group suite holds true under the paid-tier flag; anything
/// else (absent, another type, the suite unavailable) reads as false.
bool isPaidTierActive(const settings::CustomizationManager& customizationManager);

} // namespace tasket::share
