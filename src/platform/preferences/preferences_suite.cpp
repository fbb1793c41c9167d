#include "platform/preferences/preferences_suite.h"

namespace tasket::platform {
namespace {

template <class T> std::optional<T> typed(const PreferencesSuite& suite, std::string_view key) {
    auto value = suite.value(key);
    if (!value)
        return std::nullopt;
    if (const T* v = value->getIf<T>())
        return *v;
    return std::nullopt;
}

} // namespace

Result<> PreferencesSuite::setValue(std::string_view key, PreferenceValue value) {
    if (auto valid = validatePreferenceKey(key); !valid)
        return valid;
    if (auto valid = validatePreferenceValue(value); !valid)
        return valid;
    return update([&](PreferenceDictionary& values) {
        values.insert_or_assign(std::string(key), std::move(value));
    });
}

Result<> PreferencesSuite::removeValue(std::string_view key) {
    return update([&](PreferenceDictionary& values) {
        if (auto it = values.find(key); it != values.end())
            values.erase(it);
    });
}

std::optional<bool> PreferencesSuite::boolValue(std::string_view key) const {
    return typed<bool>(*this, key);
}
std::optional<std::int64_t> PreferencesSuite::integerValue(std::string_view key) const {
    return typed<std::int64_t>(*this, key);
}
std::optional<double> PreferencesSuite::doubleValue(std::string_view key) const {
    return typed<double>(*this, key);
}
std::optional<std::string> PreferencesSuite::stringValue(std::string_view key) const {
    return typed<std::string>(*this, key);
}
std::optional<Date> PreferencesSuite::dateValue(std::string_view key) const {
    return typed<Date>(*this, key);
}
std::optional<PreferenceData> PreferencesSuite::dataValue(std::string_view key) const {
    return typed<PreferenceData>(*this, key);
}
std::optional<PreferenceStringList> PreferencesSuite::stringListValue(std::string_view key) const {
    return typed<PreferenceStringList>(*this, key);
}
std::optional<PreferenceDictionary> PreferencesSuite::dictionaryValue(std::string_view key) const {
    return typed<PreferenceDictionary>(*this, key);
}

} // namespace tasket::platform
