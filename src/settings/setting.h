// The description of one stored setting: its name, full key, whether it
// predates the application group (and so follows the migration flag), its
// default, and for enumerations the case read when the stored value is no
// case at all. Settings are plain constexpr data; settings_catalog.h lists them.
#pragma once

#include "rules/enum_table.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tasket::settings {

/// Where a setting is kept.
enum class SettingHome {
    appGroup,         // added with the application group: always the group suite
    predatesAppGroup, // the standard suite until the migration flag is set, then the group
};

struct SettingInfo {
    std::string_view name; // the CustomizationManager property, e.g. "allDayReminderTime"
    std::string_view key;  // full storage key
    SettingHome home;
    std::string_view environmentKey = {}; // under which views receive it (badges only)
};

/// A setting of value type T (bool, std::string_view for text, TimeOfDay,
/// std::span<const …> for lists), read as `defaultValue` when unusable.
template <class T> struct Setting {
    SettingInfo info;
    T defaultValue;
};

/// An enumeration setting, stored as the enumeration's raw value. Absent, of
/// another type, or the suite unavailable: `defaultValue`. A stored value
/// that is no case (a number out of range, an unknown text): `invalidValue`.
template <rules::DomainEnum E> struct EnumSetting {
    SettingInfo info;
    E defaultValue;
    E invalidValue;
};

/// A time of day in whole minutes, stored as minutes since midnight.
struct TimeOfDay {
    int hour = 0;
    int minute = 0;

    constexpr bool isValid() const { return hour >= 0 && hour < 24 && minute >= 0 && minute < 60; }
    constexpr std::int64_t minutesSinceMidnight() const { return std::int64_t{hour} * 60 + minute; }
    static constexpr std::optional<TimeOfDay> fromMinutesSinceMidnight(std::int64_t minutes) {
        if (minutes < 0 || minutes >= 24 * 60)
            return std::nullopt;
        return TimeOfDay{static_cast<int>(minutes / 60), static_cast<int>(minutes % 60)};
    }
    friend constexpr bool operator==(const TimeOfDay&, const TimeOfDay&) = default;
};

} // namespace tasket::settings
