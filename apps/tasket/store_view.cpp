#include "tasket/store_view.h"

#include "platform/preferences/file_preferences_suite.h"
#include "settings/focus_filter.h"
#include "settings/settings_keys.h"

namespace tasket::apps {

std::shared_ptr<store::LocalDataManager> openStoreForOneCommand() {
    auto manager = store::LocalDataManager::make();
    manager->setWatchesOtherProcesses(false);
    return manager;
}

platform::Result<StoreView> openStoreView() {
    namespace keys = settings::keys;
    StoreView view;
    view.localDataManager = openStoreForOneCommand();
    view.customizationManager = std::make_shared<settings::CustomizationManager>(
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite)),
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kStandardSuite)));
    view.focusManager = std::make_shared<settings::FocusManager>();
    if (auto focus = settings::storedFocus(*view.customizationManager->appGroupSuite()))
        view.focusManager->focus(std::move(*focus));
    auto fetchManager = store::LocalDataFetchManager::make(
        view.localDataManager, view.customizationManager, view.focusManager);
    if (!fetchManager)
        return std::unexpected(fetchManager.error());
    view.fetchManager = std::move(*fetchManager);
    return view;
}

} // namespace tasket::apps
