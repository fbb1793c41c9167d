#include "platform/preferences/preference_value.h"

#include <fmt/core.h>
#include <simdjson.h>

#include <cmath>

namespace tasket::platform {
namespace {

struct TypeNameOf {
    std::string_view operator()(bool) const { return "boolean"; }
    std::string_view operator()(std::int64_t) const { return "integer"; }
    std::string_view operator()(double) const { return "double"; }
    std::string_view operator()(const std::string&) const { return "string"; }
    std::string_view operator()(const Date&) const { return "date"; }
    std::string_view operator()(const PreferenceData&) const { return "data"; }
    std::string_view operator()(const PreferenceStringList&) const { return "string list"; }
    std::string_view operator()(const PreferenceDictionary&) const { return "dictionary"; }
};

Result<> checkText(std::string_view text, std::string_view what) {
    if (!simdjson::validate_utf8(text.data(), text.size()))
        return fail(Errc::invalidArgument, fmt::format("{} is not valid UTF-8", what));
    return {};
}

Result<> checkNumber(double number, std::string_view what) {
    if (!std::isfinite(number))
        return fail(Errc::invalidArgument, fmt::format("{} is not a finite number", what));
    return {};
}

struct Validator {
    Result<> operator()(bool) const { return {}; }
    Result<> operator()(std::int64_t) const { return {}; }
    Result<> operator()(double v) const { return checkNumber(v, "a double value"); }
    Result<> operator()(const std::string& v) const { return checkText(v, "a string value"); }
    Result<> operator()(const Date& v) const {
        return checkNumber(v.secondsSinceReference, "a date value");
    }
    Result<> operator()(const PreferenceData&) const { return {}; }
    Result<> operator()(const PreferenceStringList& list) const {
        for (const auto& item : list)
            if (auto ok = checkText(item, "a string list item"); !ok)
                return ok;
        return {};
    }
    Result<> operator()(const PreferenceDictionary& dictionary) const {
        for (const auto& [key, value] : dictionary) {
            if (auto ok = checkText(key, "a dictionary key"); !ok)
                return ok;
            if (auto ok = validatePreferenceValue(value); !ok)
                return ok;
        }
        return {};
    }
};

} // namespace

std::string_view PreferenceValue::typeName() const {
    return std::visit(TypeNameOf{}, m_storage);
}

Result<> validatePreferenceValue(const PreferenceValue& value) {
    return std::visit(Validator{}, value.storage());
}

Result<> validatePreferenceKey(std::string_view key) {
    if (key.empty())
        return fail(Errc::invalidArgument, "a preferences key is empty");
    return checkText(key, "a preferences key");
}

Result<> validatePreferenceDictionary(const PreferenceDictionary& values) {
    // A stored document may hold any text as a key, even an empty one that
    // another program wrote: only the keys given to setters must not be empty.
    for (const auto& [key, value] : values) {
        if (auto ok = checkText(key, "a preferences key"); !ok)
            return ok;
        if (auto ok = validatePreferenceValue(value); !ok)
            return fail(ok.error().code, fmt::format("{} (key \"{}\")", ok.error().message, key));
    }
    return {};
}

} // namespace tasket::platform
