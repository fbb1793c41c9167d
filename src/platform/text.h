// Small text helpers shared by the writers and parsers of the project:
// UTF-8 well-formedness, JSON string literals and lowercasing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tasket::platform {

/// Length of the well-formed UTF-8 sequence starting at `text[i]`, or 0
/// (overlong forms, surrogates and code points past U+10FFFF are not well
/// formed). A byte below 0x80 is a sequence of length 1.
std::size_t utf8SequenceLength(std::string_view text, std::size_t i);

/// How a JSON string writes "/": as is, or as "\/" (the transfer-record form).
enum class JsonSolidus { literal, escaped };

/// Appends `text` as a JSON string literal with its quotes. Control
/// characters are escaped (NUL as \u0000); bytes that start no well-formed
/// UTF-8 sequence become U+FFFD, so the output is always valid JSON.
/// Non-ASCII characters stay raw UTF-8.
void appendJsonString(std::string& out, std::string_view text,
                      JsonSolidus solidus = JsonSolidus::literal);

/// Copies `text` to `out` (room for text.size() bytes), in lower case when
/// `lowercase`, and says whether it was ASCII throughout; `out` is of no
/// use when it was not. One pass the compiler can vectorize: callers try it
/// before asking ICU.
bool copyAscii(std::string_view text, char* out, bool lowercase);

/// `text` (UTF-8) in lower case by the Unicode rules of the root locale.
std::string lowercased(std::string_view text);

} // namespace tasket::platform
