// Splits predicate text into tokens: names, numbers, quoted strings, format
// specifiers, comparison options and symbols. Keywords are names here; the
// parser tells them apart, case-insensitively. Every token keeps its
// character offset so that errors can point at it.
#pragma once

#include "platform/error.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::objectstore::detail {

enum class TokenKind {
    end,
    name,        // text: the name; escaped when written with a leading '#'
    keyOperator, // text: "@count" and the like
    integer,     // integer
    real,        // real
    string,      // text: the unescaped contents
    argument,    // text: "@", "K", "d" or "f" (the normalized conversion)
    options,     // integer: kCaseInsensitive | kDiacriticInsensitive
    symbol,      // text: ( ) { } , . == != < <= > >= && || !
};

struct Token {
    TokenKind kind = TokenKind::end;
    std::size_t position = 0;
    std::string text;
    std::int64_t integer = 0;
    double real = 0;
    bool escaped = false;
};

/// The tokens of `text`, ending with one TokenKind::end; parseError names
/// the offset of the first character that fits no token.
[[nodiscard]] platform::Result<std::vector<Token>> tokenize(std::string_view text);

/// Whether `name` is a reserved word of the language, in any letter case.
[[nodiscard]] bool isKeyword(std::string_view name);

/// Case-insensitive ASCII equality, for keywords.
[[nodiscard]] bool equalsKeyword(std::string_view name, std::string_view keyword);

/// A short description of a token for error messages ("'title'", "the end").
[[nodiscard]] std::string describe(const Token& token);

} // namespace tasket::objectstore::detail
