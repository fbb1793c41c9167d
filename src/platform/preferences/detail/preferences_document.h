// The text form of a preferences suite: one JSON object whose members are the
// stored keys, in key order. Booleans, integers, doubles, strings and string
// lists are plain JSON (a double always carries a fraction or exponent, so it
// reads back as a double); a date, bytes and a dictionary are one-member
// objects tagged "date" (seconds since 2001-01-01 UTC), "data" (base64) and
// "dictionary". Anything else is not a suite document.
#pragma once

#include "platform/error.h"
#include "platform/preferences/preference_value.h"

#include <string>
#include <string_view>

namespace tasket::platform::detail {

/// Parses a document; fails with parseError naming the first problem.
[[nodiscard]] Result<PreferenceDictionary> parsePreferencesDocument(std::string_view text);

/// Writes `values` as a document (pretty-printed, ending in a newline).
/// The values must have passed validatePreferenceDictionary.
[[nodiscard]] std::string writePreferencesDocument(const PreferenceDictionary& values);

} // namespace tasket::platform::detail
