// How each kind of setting value is read from and written to a preferences
// value. Reading never fails: anything unusable becomes the setting's
// default (or, for an enumeration value that is no case, its invalidValue).
#pragma once

#include "platform/preferences/preference_value.h"
#include "rules/action_enumerations.h"
#include "settings/setting.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tasket::settings::detail {

using platform::PreferenceValue;
using Stored = std::optional<PreferenceValue>;

/// An integer, or a double holding a whole number; nullopt otherwise.
std::optional<std::int64_t> storedInteger(const PreferenceValue& value);

bool decode(const Setting<bool>& setting, const Stored& stored);
std::string decode(const Setting<std::string_view>& setting, const Stored& stored);
TimeOfDay decode(const Setting<TimeOfDay>& setting, const Stored& stored);
std::vector<std::string> decode(const Setting<std::span<const std::string_view>>& setting,
                                const Stored& stored);
/// Unknown action names in the stored list are skipped, so a list written by
/// a newer program keeps the actions this one knows.
std::vector<rules::TK_TaskAction>
decode(const Setting<std::span<const rules::TK_TaskAction>>& setting, const Stored& stored);

template <rules::DomainEnum E> E decode(const EnumSetting<E>& setting, const Stored& stored) {
    if (!stored)
        return setting.defaultValue;
    if constexpr (rules::NameStoredEnum<E>) {
        const std::string* text = stored->getIf<std::string>();
        if (!text)
            return setting.defaultValue;
        return rules::fromStored<E>(*text).value_or(setting.invalidValue);
    } else {
        const auto number = storedInteger(*stored);
        if (!number)
            return setting.defaultValue;
        return rules::fromStored<E>(*number).value_or(setting.invalidValue);
    }
}

/// The stored form of a value; nullopt for a value that cannot be stored
/// (a time of day out of range).
std::optional<PreferenceValue> encode(bool value);
std::optional<PreferenceValue> encode(std::string_view value);
std::optional<PreferenceValue> encode(TimeOfDay value);
std::optional<PreferenceValue> encode(std::span<const std::string> value);
std::optional<PreferenceValue> encode(std::span<const rules::TK_TaskAction> value);

/// The raw value: the integer code, or the case name for name-stored enumerations.
template <rules::DomainEnum E> std::optional<PreferenceValue> encode(E value) {
    return PreferenceValue(rules::toStored(value));
}

} // namespace tasket::settings::detail
