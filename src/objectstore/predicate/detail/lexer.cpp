#include "objectstore/predicate/detail/lexer.h"

#include "objectstore/predicate/predicate.h"

#include <fmt/format.h>
#include <locale.h>

#include <array>
#include <charconv>
#include <clocale>
#include <cstdlib>

namespace tasket::objectstore::detail {

using platform::Errc;
using platform::fail;

namespace {

constexpr std::array kKeywords = {
    "AND",        "OR",       "NOT",  "ANY",           "ALL",
    "NONE",       "SOME",     "IN",   "BETWEEN",       "CONTAINS",
    "BEGINSWITH", "ENDSWITH", "LIKE", "TRUEPREDICATE", "FALSEPREDICATE",
    "NIL",        "NULL",     "TRUE", "FALSE",         "YES",
    "NO",
};

bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}
bool isNamePart(char c) {
    return isNameStart(c) || (c >= '0' && c <= '9');
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::string printable(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f)
        return fmt::format("'{}'", c);
    return fmt::format("byte 0x{:02x}", byte);
}

// Decimal text to double independent of the process locale; overflow
// gives infinity, as the printer relies on.
double decimalToDouble(const std::string& text) {
    static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", locale_t{});
    return strtod_l(text.c_str(), nullptr, cLocale);
}

class Lexer {
  public:
    explicit Lexer(std::string_view text) : m_text(text) {}

    platform::Result<std::vector<Token>> run() {
        std::vector<Token> tokens;
        while (true) {
            while (m_pos < m_text.size() && isSpace(m_text[m_pos]))
                ++m_pos;
            if (m_pos >= m_text.size()) {
                tokens.push_back(Token{TokenKind::end, m_pos, {}, 0, 0, false});
                return tokens;
            }
            auto token = next();
            if (!token)
                return std::unexpected(token.error());
            tokens.push_back(std::move(*token));
        }
    }

  private:
    char peek(std::size_t ahead = 0) const {
        return m_pos + ahead < m_text.size() ? m_text[m_pos + ahead] : '\0';
    }

    platform::Result<Token> next() {
        const std::size_t start = m_pos;
        const char c = m_text[m_pos];
        Token token;
        token.position = start;
        if (isNameStart(c) || ((c == '#' || c == '@') && isNameStart(peek(1)))) {
            if (c == '#' || c == '@')
                ++m_pos;
            const std::size_t nameStart = m_pos;
            while (m_pos < m_text.size() && isNamePart(m_text[m_pos]))
                ++m_pos;
            token.kind = c == '@' ? TokenKind::keyOperator : TokenKind::name;
            token.escaped = c == '#';
            token.text = std::string(c == '@' ? "@" : "") +
                         std::string(m_text.substr(nameStart, m_pos - nameStart));
            return token;
        }
        if (isDigit(c) ||
            (c == '-' && (isDigit(peek(1)) || (peek(1) == '.' && isDigit(peek(2))))) ||
            (c == '.' && isDigit(peek(1))))
            return number(token);
        if (c == '"' || c == '\'')
            return string(token);
        if (c == '%')
            return argument(token);
        if (c == '[')
            return options(token);
        return symbol(token);
    }

    platform::Result<Token> number(Token token) {
        const std::size_t start = m_pos;
        if (peek() == '-')
            ++m_pos;
        bool real = false;
        while (isDigit(peek()))
            ++m_pos;
        if (peek() == '.' && isDigit(peek(1))) {
            real = true;
            ++m_pos;
            while (isDigit(peek()))
                ++m_pos;
        }
        if ((peek() == 'e' || peek() == 'E') &&
            (isDigit(peek(1)) || ((peek(1) == '+' || peek(1) == '-') && isDigit(peek(2))))) {
            real = true;
            m_pos += 2;
            while (isDigit(peek()))
                ++m_pos;
        }
        if (isNameStart(peek()))
            return fail(Errc::parseError,
                        fmt::format("malformed number at offset {}: unexpected {}", start,
                                    printable(peek())));
        const std::string text(m_text.substr(start, m_pos - start));
        if (!real) {
            std::int64_t value = 0;
            auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
            if (ec == std::errc() && end == text.data() + text.size()) {
                token.kind = TokenKind::integer;
                token.integer = value;
                return token;
            }
        }
        token.kind = TokenKind::real; // including integers too large for 64 bits
        token.real = decimalToDouble(text);
        token.text = text;
        return token;
    }

    platform::Result<Token> string(Token token) {
        const char quote = m_text[m_pos++];
        token.kind = TokenKind::string;
        while (true) {
            if (m_pos >= m_text.size())
                return fail(Errc::parseError,
                            fmt::format("unterminated string starting at offset {}: expected {}",
                                        token.position, quote == '"' ? "'\"'" : "\"'\""));
            const char c = m_text[m_pos++];
            if (c == quote)
                return token;
            if (c != '\\') {
                token.text += c;
                continue;
            }
            if (m_pos >= m_text.size())
                continue; // reported as unterminated above
            const char escaped = m_text[m_pos++];
            switch (escaped) {
            case 'n': token.text += '\n'; break;
            case 't': token.text += '\t'; break;
            case 'r': token.text += '\r'; break;
            default: token.text += escaped;
            }
        }
    }

    platform::Result<Token> argument(Token token) {
        ++m_pos;
        token.kind = TokenKind::argument;
        if (peek() == '@' || peek() == 'K') {
            token.text = std::string(1, peek());
            ++m_pos;
            return token;
        }
        while (peek() == 'l' || peek() == 'h' || peek() == 'q' || peek() == 'z' || peek() == 'j' ||
               peek() == 't')
            ++m_pos;
        const char conversion = peek();
        if (conversion == 'd' || conversion == 'i' || conversion == 'u') {
            token.text = "d";
        } else if (conversion == 'f' || conversion == 'g' || conversion == 'e') {
            token.text = "f";
        } else {
            return fail(
                Errc::parseError,
                fmt::format(
                    "unsupported format specifier at offset {}: expected %@, %K, %d, %i, %ld or %f",
                    token.position));
        }
        ++m_pos;
        return token;
    }

    platform::Result<Token> options(Token token) {
        ++m_pos;
        token.kind = TokenKind::options;
        while (peek() != ']') {
            const char c = peek();
            if (c == 'c' || c == 'C') {
                token.integer |= kCaseInsensitive;
            } else if (c == 'd' || c == 'D') {
                token.integer |= kDiacriticInsensitive;
            } else {
                return fail(
                    Errc::parseError,
                    fmt::format("unknown comparison option {} at offset {}: expected c, d or ']'",
                                m_pos < m_text.size() ? printable(c) : std::string("end"), m_pos));
            }
            ++m_pos;
        }
        ++m_pos;
        if (token.integer == 0)
            return fail(Errc::parseError,
                        fmt::format("empty comparison options at offset {}: expected c or d",
                                    token.position));
        return token;
    }

    platform::Result<Token> symbol(Token token) {
        static constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kTwo = {{
            {"==", "=="},
            {"!=", "!="},
            {"<>", "!="},
            {"<=", "<="},
            {"=<", "<="},
            {">=", ">="},
            {"=>", ">="},
            {"&&", "&&"},
            {"||", "||"},
        }};
        token.kind = TokenKind::symbol;
        for (const auto& [spelling, normal] : kTwo) {
            if (m_text.substr(m_pos, 2) == spelling) {
                token.text = normal;
                m_pos += 2;
                return token;
            }
        }
        const char c = m_text[m_pos];
        constexpr std::string_view kOne = "=<>!(){},.";
        if (kOne.find(c) == std::string_view::npos)
            return fail(Errc::parseError,
                        fmt::format("unexpected {} at offset {}", printable(c), m_pos));
        token.text = c == '=' ? "==" : std::string(1, c);
        ++m_pos;
        return token;
    }

    std::string_view m_text;
    std::size_t m_pos = 0;
};

} // namespace

platform::Result<std::vector<Token>> tokenize(std::string_view text) {
    return Lexer(text).run();
}

bool equalsKeyword(std::string_view name, std::string_view keyword) {
    if (name.size() != keyword.size())
        return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
        if (c != keyword[i])
            return false;
    }
    return true;
}

bool isKeyword(std::string_view name) {
    for (const char* keyword : kKeywords)
        if (equalsKeyword(name, keyword))
            return true;
    return false;
}

std::string describe(const Token& token) {
    switch (token.kind) {
    case TokenKind::end: return "the end of the predicate";
    case TokenKind::name: return fmt::format("'{}'", token.text);
    case TokenKind::keyOperator: return fmt::format("'{}'", token.text);
    case TokenKind::integer: return fmt::format("the number {}", token.integer);
    case TokenKind::real: return fmt::format("the number {}", token.text);
    case TokenKind::string: return "a quoted string";
    case TokenKind::argument: return fmt::format("'%{}'", token.text);
    case TokenKind::options: return "comparison options";
    case TokenKind::symbol: return fmt::format("'{}'", token.text);
    }
    return "?";
}

} // namespace tasket::objectstore::detail
