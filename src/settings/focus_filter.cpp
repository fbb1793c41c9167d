#include "settings/focus_filter.h"

#include "platform/main_queue.h"
#include "settings/settings_keys.h"

namespace tasket::settings {

std::optional<std::vector<std::string>> storedFocus(const platform::PreferencesSuite& suite) {
    return suite.stringListValue(keys::kFocusFilterCategories);
}

platform::Result<> storeFocus(platform::PreferencesSuite& suite,
                              const std::optional<std::vector<std::string>>& categoryIDs) {
    if (!categoryIDs)
        return suite.removeValue(keys::kFocusFilterCategories);
    return suite.setValue(keys::kFocusFilterCategories,
                          platform::PreferenceStringList(categoryIDs->begin(), categoryIDs->end()));
}

namespace {

void apply(FocusManager& manager, const platform::PreferencesSuite& suite) {
    auto focus = storedFocus(suite);
    if (!focus) {
        manager.unfocus();
        return;
    }
    if (!manager.isFocused().value() || manager.categories().value() != *focus)
        manager.focus(std::move(*focus));
}

} // namespace

platform::Result<std::unique_ptr<platform::PreferencesObservation>>
followStoredFocus(const std::shared_ptr<FocusManager>& manager,
                  const std::shared_ptr<platform::PreferencesSuite>& suite) {
    apply(*manager, *suite);
    return suite->observeChanges([weakManager = std::weak_ptr<FocusManager>(manager),
                                  weakSuite = std::weak_ptr<platform::PreferencesSuite>(suite)] {
        platform::MainQueue::shared().post([weakManager, weakSuite] {
            const auto follower = weakManager.lock();
            const auto followed = weakSuite.lock();
            if (follower && followed)
                apply(*follower, *followed);
        });
    });
}

} // namespace tasket::settings
