// One typed value of a preferences suite: a boolean, an integer, a double,
// a string, a date, bytes, a list of strings, or a dictionary of such values.
// A value is what the suite stores; it never converts between types, so a
// reader asking for a boolean where a string is stored gets nothing.
#pragma once

#include "platform/date.h"
#include "platform/error.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tasket::platform {

class PreferenceValue;

using PreferenceData = std::vector<std::uint8_t>;
using PreferenceStringList = std::vector<std::string>;
// A map of an incomplete value type: libstdc++ allows it, and the recursion
// is what a dictionary of dictionaries needs.
using PreferenceDictionary = std::map<std::string, PreferenceValue, std::less<>>;

class PreferenceValue {
  public:
    using Storage = std::variant<bool, std::int64_t, double, std::string, Date, PreferenceData,
                                 PreferenceStringList, PreferenceDictionary>;

    PreferenceValue() : m_storage(false) {}
    PreferenceValue(bool v) : m_storage(v) {}
    PreferenceValue(int v) : m_storage(std::int64_t{v}) {}
    PreferenceValue(std::int64_t v) : m_storage(v) {}
    PreferenceValue(double v) : m_storage(v) {}
    PreferenceValue(std::string v) : m_storage(std::move(v)) {}
    PreferenceValue(std::string_view v) : m_storage(std::string(v)) {}
    PreferenceValue(const char* v) : m_storage(std::string(v)) {}
    PreferenceValue(Date v) : m_storage(v) {}
    PreferenceValue(PreferenceData v) : m_storage(std::move(v)) {}
    PreferenceValue(PreferenceStringList v) : m_storage(std::move(v)) {}
    PreferenceValue(PreferenceDictionary v) : m_storage(std::move(v)) {}

    /// The stored alternative of type T, or nullptr when another type is stored.
    template <class T> const T* getIf() const { return std::get_if<T>(&m_storage); }
    template <class T> bool holds() const { return std::holds_alternative<T>(m_storage); }
    [[nodiscard]] const Storage& storage() const { return m_storage; }

    /// A word naming the stored type ("boolean", "integer", …) for messages.
    [[nodiscard]] std::string_view typeName() const;

    friend bool operator==(const PreferenceValue&, const PreferenceValue&) = default;

  private:
    Storage m_storage;
};

/// Whether `value` can be stored: doubles and dates finite, every string
/// (dictionary keys included) valid UTF-8. Fails with invalidArgument.
[[nodiscard]] Result<> validatePreferenceValue(const PreferenceValue& value);
/// Whether `key` can name a stored value: non-empty, valid UTF-8.
[[nodiscard]] Result<> validatePreferenceKey(std::string_view key);
/// Checks every key and value of a dictionary about to be stored.
[[nodiscard]] Result<> validatePreferenceDictionary(const PreferenceDictionary& values);

} // namespace tasket::platform
