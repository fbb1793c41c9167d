#include "share/paid_tier.h"

#include "rules/texts.h"
#include "settings/settings_keys.h"

#include <fmt/format.h>

namespace tasket::share {

std::string paidTierNotice() {
    return fmt::format("{}. {} {}", rules::texts::kPremiumRequired.translated(),
                       rules::texts::kPremiumRequiredMessage.translated(),
                       rules::texts::kAttachmentsLeftOut.translated());
}

bool isPaidTierActive(const settings::CustomizationManager& customizationManager) {
    return customizationManager.appGroupSuite()
        ->boolValue(settings::keys::kIsSuccessfulPurchase)
        .value_or(false);
}

} // namespace tasket::share
