#include "platform/preferences/file_preferences_suite.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/customization_manager.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

using namespace tasket::settings;
using tasket::platform::InMemoryPreferencesSuite;
using tasket::platform::PreferenceDictionary;
using tasket::platform::PreferenceStringList;
using tasket::platform::PreferenceValue;

namespace {

class CustomizationManagerTest : public ::testing::Test {
  protected:
    std::shared_ptr<InMemoryPreferencesSuite> m_group =
        std::make_shared<InMemoryPreferencesSuite>(std::string(keys::kAppGroupSuite));
    std::shared_ptr<InMemoryPreferencesSuite> m_standard =
        std::make_shared<InMemoryPreferencesSuite>(std::string(keys::kStandardSuite));
    CustomizationManager m_manager{m_group, m_standard};

    void setMigrated() {
        ASSERT_TRUE(m_group->setValue(keys::kDidMigrateUserDefaultsToAppGroup, true));
    }
};

template <class S> auto defaultOf(const S& setting) {
    using V = decltype(std::declval<CustomizationManager&>().value(setting));
    if constexpr (std::is_same_v<V, std::string>)
        return std::string(setting.defaultValue);
    else if constexpr (requires { setting.defaultValue.begin(); })
        return V(setting.defaultValue.begin(), setting.defaultValue.end());
    else
        return setting.defaultValue;
}

template <class Visit> void forEachSetting(Visit&& visit) {
    std::apply([&](const auto&... setting) { (visit(setting), ...); }, catalog::kAllSettings);
}

} // namespace

TEST_F(CustomizationManagerTest, UnavailableSuitesReadDefaultsAndSettersSkip) {
    setMigrated();
    ASSERT_TRUE(m_group->setValue(keys::kUnassignedSectionPlacement, 1));
    m_group->setAvailable(false);
    m_standard->setAvailable(false);
    EXPECT_EQ(m_manager.unassignedSectionPlacement(), TK_UnassignedSectionPlacement::last);
    EXPECT_EQ(m_manager.remindersDatabaseType(), TK_RemindersDatabaseType::all);
    const auto writesBefore = m_group->writeCount();
    forEachSetting([&](const auto& setting) {
        m_manager.setValue(setting, m_manager.value(setting));
        m_manager.resetValue(setting.info);
    });
    EXPECT_EQ(m_group->writeCount(), writesBefore);
    EXPECT_EQ(m_standard->writeCount(), 0u);
    m_group->setAvailable(true);
    EXPECT_EQ(m_manager.unassignedSectionPlacement(), TK_UnassignedSectionPlacement::first);
}

// The out-of-range rules: what a stored value that is no case reads as.
TEST_F(CustomizationManagerTest, EnumerationsReadWithTheirOutOfRangeRules) {
    using P = TK_UnassignedSectionPlacement;
    using R = TK_RemindersDatabaseType;
    const std::tuple<std::optional<PreferenceValue>, P, R> cases[] = {
        {std::nullopt, P::last, R::all}, {0, P::none, R::all},   {1, P::first, R::exact},
        {2, P::last, R::addOnly},        {3, P::last, R::exact}, {-1, P::last, R::exact},
        {2.0, P::last, R::addOnly}, // a whole double is that number
        {1.5, P::last, R::all},     // not a whole number: as if absent
        {"1", P::last, R::all},     // not a number
        {true, P::last, R::all},
    };
    for (const auto& [stored, placement, databaseType] : cases) {
        for (auto key :
             {keys::kUnassignedSectionPlacement.full(), keys::kRemindersDatabaseType.full()})
            ASSERT_TRUE(stored ? m_group->setValue(key, *stored) : m_group->removeValue(key));
        const std::string shown = stored ? std::string(stored->typeName()) : "absent";
        EXPECT_EQ(m_manager.unassignedSectionPlacement(), placement) << shown;
        EXPECT_EQ(m_manager.remindersDatabaseType(), databaseType) << shown;
    }
}

TEST_F(CustomizationManagerTest, AnEmptySuiteOrValuesOfTheWrongTypeReadAsTheDefault) {
    const auto expectDefaults = [&] {
        forEachSetting([&](const auto& setting) {
            EXPECT_EQ(m_manager.value(setting), defaultOf(setting)) << setting.info.name;
        });
    };
    expectDefaults();
    EXPECT_EQ(m_group->writeCount() + m_standard->writeCount(), 0u);
    setMigrated();
    const std::pair<std::string_view, PreferenceValue> cases[] = {
        {keys::kIsAssistEnabled, "true"},
        {keys::kIsShowingProgress, 0},
        {keys::kTintColor, 3},
        {keys::kAppearance, "Dark"},
        {keys::kUnassignedSectionTitle, false},
        {keys::kAllDayReminderTime, "09:00"},
        {keys::kAllDayReminderTime, 24 * 60}, // not a time of day
        {keys::kRemindersLists, "one list"},
        {keys::kTaskActions, 5},
    };
    for (const auto& [key, stored] : cases)
        ASSERT_TRUE(m_group->setValue(key, stored));
    expectDefaults();
}

// A group suite as the main application writes it (data/): every setting
// away from its default, beside the bookkeeping keys of other subsystems,
// whose irregular spellings must be kept. Each setting reads back from it,
// and writing the values read gives the same stored forms.
TEST_F(CustomizationManagerTest, ReadsAndWritesTheSuiteTheMainApplicationWrites) {
    tasket::testing::TempDir dir;
    std::filesystem::copy(TASKET_SETTINGS_DATA, dir.path());
    auto written = std::make_shared<tasket::platform::FilePreferencesSuite>(
        dir.path(), std::string(keys::kAppGroupSuite));
    CustomizationManager reader(written, m_standard);
    setMigrated();
    forEachSetting([&](const auto& setting) {
        EXPECT_NE(reader.value(setting), defaultOf(setting)) << setting.info.name;
        m_manager.setValue(setting, reader.value(setting));
    });
    for (const auto& [key, value] : m_group->dictionaryRepresentation())
        EXPECT_EQ(written->value(key), value) << key;
    EXPECT_EQ(m_group->dictionaryRepresentation().size(), catalog::kSettingInfos.size() + 1);
    for (std::string_view key :
         {keys::kFoldersSortOrderDirection.full(), keys::kSmartCategoriesSortDirection.full(),
          keys::kCustomAttributesSortOrderDirection.full(), keys::kValuesSortDirection.full(),
          keys::kNotSyncedSmartCategories.full(), keys::kLastCloudAccountStatusCheckDate.full(),
          keys::kDidCreateSharedDatabaseSubscription.full(), keys::kPersistentHistoryToken.full(),
          keys::kIsSuccessfulPurchase.full(), keys::kDefaultCategory.full()})
        EXPECT_TRUE(written->value(key)) << key;
}

TEST_F(CustomizationManagerTest, PredatingSettingsUseTheStandardSuiteUntilTheFlagIsSet) {
    m_manager.setAllDayReminderTime({7, 15});
    m_manager.setUnassignedSectionTitle("Inbox");
    EXPECT_EQ(m_standard->integerValue(keys::kAllDayReminderTime), 7 * 60 + 15);
    EXPECT_FALSE(m_group->value(keys::kAllDayReminderTime));
    // Settings added with the group never consult the flag.
    EXPECT_EQ(m_group->stringValue(keys::kUnassignedSectionTitle), "Inbox");
    EXPECT_FALSE(m_standard->value(keys::kUnassignedSectionTitle));

    ASSERT_TRUE(m_group->setValue(keys::kAllDayReminderTime, 20 * 60));
    EXPECT_EQ(m_manager.allDayReminderTime(), (TimeOfDay{7, 15}));
    setMigrated();
    EXPECT_EQ(m_manager.allDayReminderTime(), (TimeOfDay{20, 0}));
    m_manager.setAllDayReminderTime({6, 0});
    m_manager.setAllDayReminderTime({25, 0}); // not a time of day: skipped
    EXPECT_EQ(m_group->integerValue(keys::kAllDayReminderTime), 360);
    EXPECT_EQ(m_standard->integerValue(keys::kAllDayReminderTime), 7 * 60 + 15);
    // Names a newer program wrote are skipped; the known ones stay.
    ASSERT_TRUE(m_group->setValue(keys::kTaskActions, PreferenceStringList{"pin", "teleport"}));
    EXPECT_EQ(m_manager.taskActions(), std::vector{TK_TaskAction::pin});
}

TEST_F(CustomizationManagerTest, TheMoveWaitsForBothSuitesCopiesOldValuesOnceThenSetsTheFlag) {
    ASSERT_TRUE(m_standard->setValue(keys::kAllDayReminderTime, 8 * 60));
    ASSERT_TRUE(m_standard->setValue(keys::kTintColor, "teal"));
    ASSERT_TRUE(m_standard->setValue(keys::kUnassignedSectionTitle, "not predating: not moved"));
    // Stale, and absent in the standard suite.
    ASSERT_TRUE(m_group->setValue(keys::kIsExcludingCompletedTasks, true));
    ASSERT_TRUE(m_group->setValue(keys::kUnassignedSectionTitle, "Later"));

    // It waits until both suites can be read and written.
    for (auto* suite : {m_group.get(), m_standard.get()}) {
        suite->setAvailable(false);
        auto refused = m_manager.migrateUserDefaultsToAppGroup();
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error().code, tasket::platform::Errc::unavailable);
        suite->setAvailable(true);
    }
    EXPECT_FALSE(m_manager.didMigrateUserDefaultsToAppGroup());
    EXPECT_EQ(m_manager.migrateUserDefaultsToAppGroup(), true);
    EXPECT_EQ(m_group->boolValue(keys::kDidMigrateUserDefaultsToAppGroup), true);

    EXPECT_EQ(m_manager.allDayReminderTime(), (TimeOfDay{8, 0}));
    EXPECT_EQ(m_manager.tintColor(), TK_TintColor::teal);
    EXPECT_FALSE(m_manager.isExcludingCompletedTasks()); // reads as it read before the move
    EXPECT_EQ(m_manager.unassignedSectionTitle(), "Later");

    // Once: later changes to the standard suite are not copied again.
    ASSERT_TRUE(m_standard->setValue(keys::kTintColor, "red"));
    const auto writes = m_group->writeCount();
    EXPECT_EQ(m_manager.migrateUserDefaultsToAppGroup(), false);
    EXPECT_EQ(m_group->writeCount(), writes);
    EXPECT_EQ(m_manager.tintColor(), TK_TintColor::teal);
}

TEST(CustomizationManagerFiles, UserSuitesLiveInXdgConfigHome) {
    tasket::testing::TempDir dir;
    tasket::testing::ScopedEnv config("XDG_CONFIG_HOME", dir / "config");
    auto manager = CustomizationManager::openUserSuites();
    manager.setIsAssistEnabled(true);
    manager.setAppearance(TK_Appearance::dark);
    EXPECT_TRUE(std::filesystem::exists(dir / "config" / "group.QRX-Lumenforge.Tasket.json"));
    EXPECT_TRUE(std::filesystem::exists(dir / "config" / "Lumenforge.QRX.Tasket.json"));
}
