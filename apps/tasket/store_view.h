// What the reading commands look through: the store in the
// application-group folder and the live collections over it, ordered by the
// user's sort settings (the same order the application shows).
#pragma once

#include "platform/error.h"
#include "store/local_data_fetch_manager.h"

#include <memory>

namespace tasket::apps {

struct StoreView {
    std::shared_ptr<store::LocalDataManager> localDataManager;
    std::shared_ptr<settings::CustomizationManager> customizationManager;
    std::shared_ptr<settings::FocusManager> focusManager;
    std::unique_ptr<store::LocalDataFetchManager> fetchManager;
};

/// The user's store for one command: it does not watch for other
/// processes' saves, since the command ends before any could matter.
std::shared_ptr<store::LocalDataManager> openStoreForOneCommand();

/// `saved` with what the user can do appended to a failure's message, when
/// there is something (the store read-only, the disk full, the file damaged).
[[nodiscard]] platform::Result<void> withStoreAdvice(platform::Result<void> saved);

/// The user's settings (the application group's suite and the standard one).
std::shared_ptr<settings::CustomizationManager> openSettings();

/// Opens the user's store (the process stops when it cannot) and settings
/// and fetches the collections. Fails when a fetch fails.
[[nodiscard]] platform::Result<StoreView>
openStoreView(store::CollectionKinds kept = store::kAllCollectionKinds);

} // namespace tasket::apps
