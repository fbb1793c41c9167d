#include "settings/settings_catalog.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace tasket::settings;

TEST(SettingsCatalog, OnlyTheNineBadgeSettingsReachTheViewsUnderTheirEnvironmentKeys) {
    std::set<std::string_view> environmentKeys;
    for (const auto& info : catalog::kSettingInfos) {
        if (info.environmentKey.empty())
            continue;
        EXPECT_EQ(info.environmentKey, "__Key_" + std::string(info.name));
        environmentKeys.insert(info.environmentKey);
    }
    EXPECT_EQ(environmentKeys.size(), 9u);
}

TEST(SettingsCatalog, NamesAndKeysAreUnique) {
    std::set<std::string_view> names, storageKeys;
    for (const auto& info : catalog::kSettingInfos) {
        EXPECT_TRUE(names.insert(info.name).second) << info.name;
        EXPECT_TRUE(storageKeys.insert(info.key).second) << info.key;
    }
}
