// The paid-tier check: whether the user bought the paid tier, as the flag in
// the application group's preferences says. Attachments are part of the
// paid tier.
#pragma once

#include "settings/customization_manager.h"

#include <functional>

namespace tasket::share {

/// Asked once per share; true when the paid tier is active.
using PaidTierCheck = std::function<bool()>;

/// True when the group suite holds true under the paid-tier flag; anything
/// else (absent, another type, the suite unavailable) reads as false.
bool isPaidTierActive(const settings::CustomizationManager& customizationManager);

} // namespace tasket::share
