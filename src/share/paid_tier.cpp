#include "share/paid_tier.h"

#include "settings/settings_keys.h"

namespace tasket::share {

bool isPaidTierActive(const settings::CustomizationManager& customizationManager) {
    return customizationManager.appGroupSuite()
        ->boolValue(settings::keys::kIsSuccessfulPurchase)
        .value_or(false);
}

} // namespace tasket::share
