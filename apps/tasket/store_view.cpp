#include "tasket/store_view.h"

#include "platform/preferences/file_preferences_suite.h"
#include "settings/focus_filter.h"
#include "settings/settings_keys.h"

#include <fmt/format.h>

namespace tasket::apps {

std::shared_ptr<store::LocalDataManager> openStoreForOneCommand() {
    auto manager = store::LocalDataManager::make();
    manager->setWatchesOtherProcesses(false);
    return manager;
}

std::shared_ptr<settings::CustomizationManager> openSettings() {
    namespace keys = settings::keys;
    return std::make_shared<settings::CustomizationManager>(
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite)),
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kStandardSuite)));
}

platform::Result<void> withStoreAdvice(platform::Result<void> saved) {
    if (saved)
        return saved;
    if (const auto advice = store::storeFailureAdvice(saved.error().code); !advice.empty())
        saved.error().message += fmt::format(".\n{}", advice);
    return saved;
}

platform::Result<StoreView> openStoreView(store::CollectionKinds kept) {
    StoreView view;
    view.localDataManager = openStoreForOneCommand();
    view.customizationManager = openSettings();
    view.focusManager = std::make_shared<settings::FocusManager>();
    if (auto focus = settings::storedFocus(*view.customizationManager->appGroupSuite()))
        view.focusManager->focus(std::move(*focus));
    auto fetchManager = store::LocalDataFetchManager::make(
        view.localDataManager, view.customizationManager, view.focusManager, kept);
    if (!fetchManager)
        return std::unexpected(fetchManager.error());
    view.fetchManager = std::move(*fetchManager);
    return view;
}

} // namespace tasket::apps
