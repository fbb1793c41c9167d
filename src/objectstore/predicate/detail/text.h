// Text operations shared by the in-memory evaluator and the SQL functions,
// so that both evaluators agree byte for byte: case and diacritic folding
// (ICU's, through platform/unicode.h), substring and wildcard matching, and
// the localized case-insensitive collation used for sorting.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tasket::objectstore::detail {

/// `text` with the [c] (ICU full case folding) and [d] (canonical
/// decomposition with nonspacing marks removed, then recomposition) options
/// applied; unchanged when `options` is 0. Invalid UTF-8 reads as U+FFFD.
[[nodiscard]] std::string foldText(std::string_view text, std::uint8_t options);

/// foldText() of ASCII text, written to `out` (room for text.size()
/// bytes); false, with `out` undefined, when `text` is not ASCII.
[[nodiscard]] bool foldAscii(std::string_view text, std::uint8_t options, char* out);

/// CONTAINS, BEGINSWITH and ENDSWITH after folding both sides.
[[nodiscard]] bool textContains(std::string_view text, std::string_view part, std::uint8_t options);
[[nodiscard]] bool textBeginsWith(std::string_view text, std::string_view part,
                                  std::uint8_t options);
[[nodiscard]] bool textEndsWith(std::string_view text, std::string_view part, std::uint8_t options);

/// LIKE after folding: '*' matches any run of code points, '?' exactly one,
/// a backslash makes the next character literal.
[[nodiscard]] bool textLike(std::string_view text, std::string_view pattern, std::uint8_t options);

/// Localized, case-insensitive order (ICU collator of the default locale at
/// secondary strength): negative, zero or positive.
[[nodiscard]] int collateLocalized(std::string_view a, std::string_view b);

} // namespace tasket::objectstore::detail
