// The recursive-descent parser behind Predicate::parse. Precedence from
// loosest: OR, AND, NOT, then a parenthesized predicate, a constant
// predicate or one comparison. Format arguments are consumed left to right
// and substituted as constants (or, for %K, key paths).
#include "objectstore/predicate/detail/lexer.h"
#include "objectstore/predicate/predicate.h"

#include <fmt/format.h>

#include <cmath>
#include <optional>

namespace tasket::objectstore {

namespace {

using detail::equalsKeyword;
using detail::Token;
using detail::TokenKind;
using platform::Errc;
using platform::Error;

// A tree deeper than this is refused rather than risking SQLite's stack:
// its parser overflows near a hundred nested parentheses, and each level
// of the tree can add one to the SQL a predicate compiles to. The text may
// nest deeper (parentheses around a single term add no level to the tree),
// up to kMaxNesting, which keeps our own recursion short. A tree within
// kMaxDepth prints with at most that much nesting, so it always parses back.
constexpr int kMaxDepth = 40;
constexpr int kMaxNesting = 100;

int depthOf(const Predicate& predicate) {
    int deepest = 0;
    for (const auto& child : predicate.children())
        deepest = std::max(deepest, depthOf(child));
    return predicate.children().empty() ? 0 : deepest + 1;
}

bool isNaN(const Scalar& s) {
    if (const auto* d = std::get_if<double>(&s))
        return std::isnan(*d);
    if (const auto* d = std::get_if<Date>(&s))
        return std::isnan(d->secondsSinceReference);
    return false;
}

bool validKeyComponent(std::string_view c) {
    if (c == "@count")
        return true;
    if (c.empty() || !((c[0] >= 'a' && c[0] <= 'z') || (c[0] >= 'A' && c[0] <= 'Z') ||
                       c[0] == '_' || c[0] == '$'))
        return false;
    for (char ch : c)
        if (!((ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') ||
              ch == '_' || ch == '$'))
            return false;
    return true;
}

class Parser {
  public:
    Parser(std::vector<Token> tokens, const std::vector<PredicateArgument>& arguments)
        : m_tokens(std::move(tokens)), m_arguments(arguments) {}

    Result<Predicate> run() {
        auto predicate = disjunction();
        if (predicate && peek().kind != TokenKind::end)
            expected("AND, OR or the end of the predicate");
        if (m_error)
            return std::unexpected(*m_error);
        if (depthOf(*predicate) > kMaxDepth)
            return platform::fail(Errc::parseError, "predicate nested too deeply");
        if (m_nextArgument < m_arguments.size())
            return platform::fail(Errc::invalidArgument,
                                  fmt::format("too many arguments: {} given, the predicate uses {}",
                                              m_arguments.size(), m_nextArgument));
        return *predicate;
    }

  private:
    const Token& peek(std::size_t ahead = 0) const {
        return m_tokens[std::min(m_index + ahead, m_tokens.size() - 1)];
    }
    const Token& take() {
        const Token& t = m_tokens[m_index];
        if (m_index + 1 < m_tokens.size())
            ++m_index;
        return t;
    }
    bool isSymbol(std::string_view s, std::size_t ahead = 0) const {
        return peek(ahead).kind == TokenKind::symbol && peek(ahead).text == s;
    }
    bool isKeyword(std::string_view k) const {
        return peek().kind == TokenKind::name && !peek().escaped && equalsKeyword(peek().text, k);
    }

    std::nullopt_t failAt(Errc code, std::size_t position, const std::string& what) {
        if (!m_error)
            m_error = Error{code, fmt::format("{} at offset {}", what, position)};
        return std::nullopt;
    }
    std::nullopt_t expected(const std::string& what) {
        return failAt(Errc::parseError, peek().position,
                      fmt::format("expected {}, found {}", what, detail::describe(peek())));
    }

    std::optional<Predicate> disjunction() {
        std::vector<Predicate> terms;
        do {
            auto term = conjunction();
            if (!term)
                return std::nullopt;
            terms.push_back(std::move(*term));
        } while ((isKeyword("OR") || isSymbol("||")) && (take(), true));
        return terms.size() == 1 ? terms.front() : orPredicate(std::move(terms));
    }

    std::optional<Predicate> conjunction() {
        std::vector<Predicate> terms;
        do {
            auto term = negation();
            if (!term)
                return std::nullopt;
            terms.push_back(std::move(*term));
        } while ((isKeyword("AND") || isSymbol("&&")) && (take(), true));
        return terms.size() == 1 ? terms.front() : andPredicate(std::move(terms));
    }

    std::optional<Predicate> negation() {
        if (!(isKeyword("NOT") || isSymbol("!")))
            return primary();
        const std::size_t position = take().position;
        if (++m_depth > kMaxNesting)
            return failAt(Errc::parseError, position, "predicate nested too deeply");
        auto inner = negation();
        --m_depth;
        if (!inner)
            return std::nullopt;
        return notPredicate(std::move(*inner));
    }

    std::optional<Predicate> primary() {
        if (isSymbol("(")) {
            const std::size_t position = take().position;
            if (++m_depth > kMaxNesting)
                return failAt(Errc::parseError, position, "predicate nested too deeply");
            auto inner = disjunction();
            --m_depth;
            if (!inner)
                return std::nullopt;
            if (!isSymbol(")"))
                return expected("')' to close the '(' at offset " + std::to_string(position));
            take();
            return inner;
        }
        if (isKeyword("TRUEPREDICATE") || isKeyword("FALSEPREDICATE")) {
            const bool value = isKeyword("TRUEPREDICATE");
            take();
            return Predicate::constant(value);
        }
        return comparison();
    }

    std::optional<Predicate> comparison() {
        Comparison c;
        c.position = peek().position;
        if (isKeyword("ANY") || isKeyword("SOME")) {
            c.quantifier = Quantifier::any;
        } else if (isKeyword("ALL")) {
            c.quantifier = Quantifier::all;
        } else if (isKeyword("NONE")) {
            c.quantifier = Quantifier::none;
        }
        if (c.quantifier != Quantifier::direct)
            take();
        auto lhs = expression();
        if (!lhs)
            return std::nullopt;
        c.lhs = std::move(*lhs);
        auto op = comparisonOperator();
        if (!op)
            return std::nullopt;
        c.op = *op;
        if (peek().kind == TokenKind::options)
            c.options = static_cast<std::uint8_t>(take().integer);
        auto rhs = expression();
        if (!rhs)
            return std::nullopt;
        c.rhs = std::move(*rhs);
        return Predicate::comparison(std::move(c));
    }

    std::optional<ComparisonOperator> comparisonOperator() {
        using Op = ComparisonOperator;
        static constexpr std::pair<std::string_view, Op> kSymbols[] = {
            {"==", Op::equal},       {"!=", Op::notEqual}, {"<", Op::less},
            {"<=", Op::lessOrEqual}, {">", Op::greater},   {">=", Op::greaterOrEqual},
        };
        static constexpr std::pair<std::string_view, Op> kWords[] = {
            {"BETWEEN", Op::between},   {"IN", Op::in},
            {"CONTAINS", Op::contains}, {"BEGINSWITH", Op::beginsWith},
            {"ENDSWITH", Op::endsWith}, {"LIKE", Op::like},
        };
        for (const auto& [text, op] : kSymbols)
            if (isSymbol(text))
                return take(), op;
        for (const auto& [text, op] : kWords)
            if (isKeyword(text))
                return take(), op;
        return expected(
            "a comparison operator (==, !=, <, <=, >, >=, BETWEEN, IN, CONTAINS, BEGINSWITH, "
            "ENDSWITH or LIKE)");
    }

    std::optional<Expression> expression() {
        const Token& t = peek();
        switch (t.kind) {
        case TokenKind::name:
            if (!t.escaped) {
                if (isKeyword("NIL") || isKeyword("NULL"))
                    return take(), Expression(Scalar());
                if (isKeyword("TRUE") || isKeyword("YES"))
                    return take(), Expression(Scalar(true));
                if (isKeyword("FALSE") || isKeyword("NO"))
                    return take(), Expression(Scalar(false));
                if (isSymbol("(", 1))
                    return typedLiteral();
                if (detail::isKeyword(t.text))
                    return expected("a key path or a value");
            }
            return keyPath();
        case TokenKind::integer: return Expression(Scalar(take().integer));
        case TokenKind::real: return Expression(Scalar(take().real));
        case TokenKind::string: return Expression(Scalar(take().text));
        case TokenKind::argument: return argument();
        case TokenKind::symbol:
            if (t.text == "{")
                return list();
            break;
        default: break;
        }
        return expected("a key path or a value");
    }

    std::optional<Expression> keyPath() {
        KeyPath path;
        path.position = peek().position;
        path.components.push_back(take().text);
        while (isSymbol(".")) {
            take();
            if (peek().kind == TokenKind::keyOperator) {
                if (peek().text != "@count")
                    return failAt(Errc::parseError, peek().position,
                                  fmt::format("unsupported key path operator '{}': expected @count",
                                              peek().text));
                path.components.push_back(take().text);
                if (isSymbol("."))
                    return failAt(Errc::parseError, peek().position,
                                  "@count must end its key path");
                break;
            }
            if (peek().kind != TokenKind::name)
                return expected("a property name after '.'");
            path.components.push_back(take().text);
        }
        return Expression(std::move(path));
    }

    // DATE(seconds), UUID("text"), BYTES("hex"), OBJECT(entity, key): the
    // constants that have no literal of their own, as toString() writes them.
    std::optional<Expression> typedLiteral() {
        const Token& name = take();
        const std::size_t position = name.position;
        const std::string kind = name.text;
        take(); // '('
        std::optional<Scalar> value;
        if (equalsKeyword(kind, "DATE")) {
            if (peek().kind == TokenKind::integer)
                value = Date{static_cast<double>(take().integer)};
            else if (peek().kind == TokenKind::real && !std::isnan(peek().real))
                value = Date{take().real};
            else
                return expected("seconds since the reference date");
        } else if (equalsKeyword(kind, "UUID")) {
            if (peek().kind != TokenKind::string)
                return expected("a quoted UUID");
            auto uuid = Uuid::parse(peek().text);
            if (!uuid)
                return failAt(Errc::parseError, peek().position, "malformed UUID");
            take();
            value = *uuid;
        } else if (equalsKeyword(kind, "BYTES")) {
            if (peek().kind != TokenKind::string)
                return expected("quoted hexadecimal bytes");
            auto bytes = hexBytes(peek().text);
            if (!bytes)
                return failAt(Errc::parseError, peek().position, "malformed hexadecimal bytes");
            take();
            value = std::move(*bytes);
        } else if (equalsKeyword(kind, "OBJECT")) {
            if (peek().kind != TokenKind::integer || peek().integer < 0 ||
                peek().integer > 0xffffffffLL)
                return expected("an entity index");
            ObjectID id;
            id.entity = static_cast<std::uint32_t>(take().integer);
            if (!isSymbol(","))
                return expected("','");
            take();
            if (peek().kind != TokenKind::integer)
                return expected("an object key");
            id.key = take().integer;
            value = id;
        } else {
            return failAt(
                Errc::parseError, position,
                fmt::format("unknown constant type '{}': expected DATE, UUID, BYTES or OBJECT",
                            kind));
        }
        if (!isSymbol(")"))
            return expected("')'");
        take();
        return Expression(std::move(*value));
    }

    static std::optional<Bytes> hexBytes(std::string_view hex) {
        auto digit = [](char c) -> int {
            if (c >= '0' && c <= '9')
                return c - '0';
            if (c >= 'a' && c <= 'f')
                return c - 'a' + 10;
            if (c >= 'A' && c <= 'F')
                return c - 'A' + 10;
            return -1;
        };
        if (hex.size() % 2)
            return std::nullopt;
        Bytes out;
        for (std::size_t i = 0; i < hex.size(); i += 2) {
            const int hi = digit(hex[i]), lo = digit(hex[i + 1]);
            if (hi < 0 || lo < 0)
                return std::nullopt;
            out.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
        }
        return out;
    }

    std::optional<Expression> list() {
        take(); // '{'
        ScalarList items;
        if (isSymbol("}"))
            return take(), Expression(std::move(items));
        while (true) {
            const std::size_t position = peek().position;
            // Only constants go inside; refusing a nested '{' here keeps a
            // run of braces from recursing once per brace.
            if (isSymbol("{"))
                return failAt(Errc::parseError, position, "expected a constant inside '{...}'");
            auto item = expression();
            if (!item)
                return std::nullopt;
            auto* scalar = std::get_if<Scalar>(&*item);
            if (!scalar)
                return failAt(Errc::parseError, position, "expected a constant inside '{...}'");
            items.push_back(std::move(*scalar));
            if (isSymbol("}"))
                return take(), Expression(std::move(items));
            if (!isSymbol(","))
                return expected("',' or '}'");
            take();
        }
    }

    std::optional<Expression> argument() {
        const Token& t = take();
        if (m_nextArgument >= m_arguments.size())
            return failAt(Errc::invalidArgument, t.position,
                          fmt::format("too few arguments: %{} has no argument", t.text));
        const PredicateArgument& arg = m_arguments[m_nextArgument++];
        const auto* scalar = std::get_if<Scalar>(&arg.value);
        if (t.text == "@") {
            if (scalar) {
                if (isNaN(*scalar))
                    return failAt(Errc::invalidArgument, t.position,
                                  "argument for %@ is not a number (NaN)");
                return Expression(*scalar);
            }
            const auto& list = std::get<ScalarList>(arg.value);
            for (const auto& item : list)
                if (isNaN(item))
                    return failAt(Errc::invalidArgument, t.position, "list for %@ holds NaN");
            return Expression(list);
        }
        if (t.text == "d") {
            if (scalar && (std::holds_alternative<std::int64_t>(*scalar) ||
                           std::holds_alternative<bool>(*scalar)))
                return Expression(*scalar);
            return failAt(Errc::invalidArgument, t.position,
                          "argument for %d must be an integer or a bool");
        }
        if (t.text == "f") {
            if (scalar && std::holds_alternative<double>(*scalar) && !isNaN(*scalar))
                return Expression(*scalar);
            if (scalar && std::holds_alternative<std::int64_t>(*scalar))
                return Expression(Scalar(static_cast<double>(std::get<std::int64_t>(*scalar))));
            return failAt(Errc::invalidArgument, t.position, "argument for %f must be a number");
        }
        // %K
        const auto* text = scalar ? std::get_if<std::string>(scalar) : nullptr;
        if (!text)
            return failAt(Errc::invalidArgument, t.position,
                          "argument for %K must be a key path text");
        KeyPath path = KeyPath::split(*text, t.position);
        for (std::size_t i = 0; i < path.components.size(); ++i)
            if (!validKeyComponent(path.components[i]) ||
                (path.components[i] == "@count" && (i == 0 || i + 1 != path.components.size())))
                return failAt(Errc::invalidArgument, t.position,
                              fmt::format("argument for %K is not a key path: \"{}\"", *text));
        return Expression(std::move(path));
    }

    std::vector<Token> m_tokens;
    const std::vector<PredicateArgument>& m_arguments;
    std::size_t m_index = 0;
    std::size_t m_nextArgument = 0;
    int m_depth = 0;
    std::optional<Error> m_error;
};

} // namespace

Result<Predicate> Predicate::parse(std::string_view format,
                                   const std::vector<PredicateArgument>& arguments) {
    auto tokens = detail::tokenize(format);
    if (!tokens)
        return std::unexpected(tokens.error());
    return Parser(std::move(*tokens), arguments).run();
}

} // namespace tasket::objectstore
