// What both history benchmarks watch: a store owner in a folder and its
// live lists, as the share form keeps them.
#pragma once

#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "store/local_data_fetch_manager.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace tasket::bench {

struct LiveLists {
    std::shared_ptr<store::LocalDataManager> data;
    std::unique_ptr<store::LocalDataFetchManager> lists;

    explicit LiveLists(const std::filesystem::path& folder)
        : data(store::LocalDataManager::make(folder)) {
        auto suite = [](std::string_view name) {
            return std::make_shared<platform::InMemoryPreferencesSuite>(std::string(name));
        };
        auto made = store::LocalDataFetchManager::make(
            data,
            std::make_shared<settings::CustomizationManager>(suite(settings::keys::kAppGroupSuite),
                                                             suite(settings::keys::kStandardSuite)),
            std::make_shared<settings::FocusManager>(),
            store::collectionKinds({store::CollectionKind::categories}));
        if (!made)
            throw std::runtime_error(made.error().message);
        lists = std::move(*made);
    }
};

} // namespace tasket::bench
