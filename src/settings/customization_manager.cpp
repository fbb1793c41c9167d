#include "settings/customization_manager.h"

#include "platform/fatal.h"
#include "platform/preferences/file_preferences_suite.h"

#include <fmt/core.h>

#include <stdexcept>

namespace tasket::settings {

using platform::Errc;
using platform::PreferenceDictionary;
using platform::PreferenceValue;

CustomizationManager::CustomizationManager(
    std::shared_ptr<platform::PreferencesSuite> appGroupSuite,
    std::shared_ptr<platform::PreferencesSuite> standardSuite)
    : m_appGroup(std::move(appGroupSuite)), m_standard(std::move(standardSuite)) {
    if (!m_appGroup || !m_standard)
        throw std::invalid_argument("CustomizationManager needs both preferences suites");
}

CustomizationManager CustomizationManager::openUserSuites() {
    return CustomizationManager(
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite)),
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kStandardSuite)));
}

bool CustomizationManager::didMigrateUserDefaultsToAppGroup() const {
    if (m_migrated.load(std::memory_order_relaxed))
        return true;
    const bool migrated =
        m_appGroup->boolValue(keys::kDidMigrateUserDefaultsToAppGroup).value_or(false);
    if (migrated)
        m_migrated.store(true, std::memory_order_relaxed);
    return migrated;
}

platform::PreferencesSuite& CustomizationManager::suiteFor(const SettingInfo& setting) const {
    if (setting.home == SettingHome::predatesAppGroup && !didMigrateUserDefaultsToAppGroup())
        return *m_standard;
    return *m_appGroup;
}

std::optional<PreferenceValue> CustomizationManager::storedValue(const SettingInfo& setting) const {
    return suiteFor(setting).value(setting.key);
}

void CustomizationManager::store(const SettingInfo& setting, PreferenceValue value) {
    auto& suite = suiteFor(setting);
    if (!suite.isAvailable())
        return;
    if (auto written = suite.setValue(setting.key, std::move(value)); !written)
        platform::warn(fmt::format("could not save the setting {}: {}", setting.name,
                                   written.error().message));
}

void CustomizationManager::resetValue(const SettingInfo& setting) {
    auto& suite = suiteFor(setting);
    if (!suite.isAvailable())
        return;
    if (auto removed = suite.removeValue(setting.key); !removed)
        platform::warn(fmt::format("could not reset the setting {}: {}", setting.name,
                                   removed.error().message));
}

platform::Result<bool> CustomizationManager::migrateUserDefaultsToAppGroup() {
    if (didMigrateUserDefaultsToAppGroup())
        return false;
    for (const auto* suite : {m_appGroup.get(), m_standard.get()})
        if (!suite->isAvailable())
            return platform::fail(Errc::unavailable,
                                  fmt::format("cannot move the settings into the application "
                                              "group: suite \"{}\" is unavailable",
                                              suite->name()));

    const PreferenceDictionary old = m_standard->dictionaryRepresentation();
    bool movedNow = false;
    auto written = m_appGroup->update([&](PreferenceDictionary& group) {
        const auto flag = group.find(keys::kDidMigrateUserDefaultsToAppGroup.full());
        if (flag != group.end() && flag->second == PreferenceValue(true))
            return; // another process moved them a moment ago
        for (const auto& setting : catalog::kSettingInfos) {
            if (setting.home != SettingHome::predatesAppGroup)
                continue;
            if (auto it = old.find(setting.key); it != old.end())
                group.insert_or_assign(std::string(setting.key), it->second);
            else if (auto stale = group.find(setting.key); stale != group.end())
                group.erase(stale);
        }
        group.insert_or_assign(std::string(keys::kDidMigrateUserDefaultsToAppGroup.full()),
                               PreferenceValue(true));
        movedNow = true;
    });
    if (!written)
        return std::unexpected(written.error());
    m_migrated.store(true, std::memory_order_relaxed);
    return movedNow;
}

} // namespace tasket::settings
