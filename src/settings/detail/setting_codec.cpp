#include "settings/detail/setting_codec.h"

#include "platform/text_catalogue.h"

#include <cmath>
#include <limits>

namespace tasket::settings::detail {

std::optional<std::int64_t> storedInteger(const PreferenceValue& value) {
    if (const auto* integer = value.getIf<std::int64_t>())
        return *integer;
    if (const auto* real = value.getIf<double>()) {
        // A whole number within range reads as that integer; 2^63 itself is not in range.
        constexpr double kLimit = 9223372036854775808.0;
        if (std::trunc(*real) == *real && *real >= -kLimit && *real < kLimit)
            return static_cast<std::int64_t>(*real);
    }
    return std::nullopt;
}

bool decode(const Setting<bool>& setting, const Stored& stored) {
    const bool* value = stored ? stored->getIf<bool>() : nullptr;
    return value ? *value : setting.defaultValue;
}

std::string decode(const Setting<std::string_view>& setting, const Stored& stored) {
    const std::string* value = stored ? stored->getIf<std::string>() : nullptr;
    // A default text reads in the user's language; the catalogue leaves
    // any other default (a symbol name) as it is.
    return value ? *value : platform::translated(setting.defaultValue);
}

TimeOfDay decode(const Setting<TimeOfDay>& setting, const Stored& stored) {
    const auto minutes = stored ? storedInteger(*stored) : std::nullopt;
    if (!minutes)
        return setting.defaultValue;
    return TimeOfDay::fromMinutesSinceMidnight(*minutes).value_or(setting.defaultValue);
}

std::vector<std::string> decode(const Setting<std::span<const std::string_view>>& setting,
                                const Stored& stored) {
    if (const auto* list = stored ? stored->getIf<platform::PreferenceStringList>() : nullptr)
        return *list;
    return {setting.defaultValue.begin(), setting.defaultValue.end()};
}

std::vector<rules::TK_TaskAction>
decode(const Setting<std::span<const rules::TK_TaskAction>>& setting, const Stored& stored) {
    const auto* list = stored ? stored->getIf<platform::PreferenceStringList>() : nullptr;
    if (!list)
        return {setting.defaultValue.begin(), setting.defaultValue.end()};
    std::vector<rules::TK_TaskAction> actions;
    for (const auto& name : *list)
        if (auto action = rules::fromCaseName<rules::TK_TaskAction>(name))
            actions.push_back(*action);
    return actions;
}

std::optional<PreferenceValue> encode(bool value) {
    return PreferenceValue(value);
}

std::optional<PreferenceValue> encode(std::string_view value) {
    return PreferenceValue(value);
}

std::optional<PreferenceValue> encode(TimeOfDay value) {
    if (!value.isValid())
        return std::nullopt;
    return PreferenceValue(value.minutesSinceMidnight());
}

std::optional<PreferenceValue> encode(std::span<const std::string> value) {
    return PreferenceValue(platform::PreferenceStringList(value.begin(), value.end()));
}

std::optional<PreferenceValue> encode(std::span<const rules::TK_TaskAction> value) {
    platform::PreferenceStringList names;
    names.reserve(value.size());
    for (auto action : value)
        names.emplace_back(rules::caseName(action));
    return PreferenceValue(std::move(names));
}

} // namespace tasket::settings::detail
