#include "share/paid_tier.h"

#include "settings/settings_keys.h"

#include <fmt/format.h>

namespace tasket::share {

std::string paidTierNotice() {
    return fmt::format("{}. {} {}", kPaidTierRequiredTitle, kPaidTierRequiredText,
                       kAttachmentsLeftOut);
}

bool isPaidTierActive(const settings::CustomizationManager& customizationManager) {
    return customizationManager.appGroupSuite()
        ->boolValue(settings::keys::kIsSuccessfulPurchase)
        .value_or(false);
}

} // namespace tasket::share
