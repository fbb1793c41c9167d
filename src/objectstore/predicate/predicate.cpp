#include "objectstore/predicate/predicate.h"

#include "objectstore/predicate/detail/lexer.h"

#include <fmt/format.h>

#include <cmath>

namespace tasket::objectstore {

KeyPath KeyPath::split(std::string_view dotted, std::size_t position) {
    KeyPath path;
    path.position = position;
    while (true) {
        const auto dot = dotted.find('.');
        path.components.emplace_back(dotted.substr(0, dot));
        if (dot == std::string_view::npos)
            return path;
        dotted.remove_prefix(dot + 1);
    }
}

struct Predicate::Node {
    Kind kind = Kind::constant;
    bool value = true;
    Comparison comparison;
    std::vector<Predicate> children;
};

Predicate::Predicate() : Predicate(constant(true)) {}

Predicate Predicate::constant(bool value) {
    static const auto yes = std::make_shared<const Node>(Node{Kind::constant, true, {}, {}});
    static const auto no = std::make_shared<const Node>(Node{Kind::constant, false, {}, {}});
    return Predicate(value ? yes : no);
}

Predicate Predicate::comparison(Comparison comparison) {
    return Predicate(
        std::make_shared<const Node>(Node{Kind::comparison, false, std::move(comparison), {}}));
}

Predicate::Kind Predicate::kind() const {
    return m_node->kind;
}
bool Predicate::constantValue() const {
    return m_node->value;
}
const Comparison& Predicate::comparison() const {
    return m_node->comparison;
}
const std::vector<Predicate>& Predicate::children() const {
    return m_node->children;
}

Predicate andPredicate(std::vector<Predicate> children) {
    return Predicate(std::make_shared<const Predicate::Node>(
        Predicate::Node{Predicate::Kind::conjunction, false, {}, std::move(children)}));
}

Predicate orPredicate(std::vector<Predicate> children) {
    return Predicate(std::make_shared<const Predicate::Node>(
        Predicate::Node{Predicate::Kind::disjunction, false, {}, std::move(children)}));
}

Predicate notPredicate(Predicate child) {
    return Predicate(std::make_shared<const Predicate::Node>(
        Predicate::Node{Predicate::Kind::negation, false, {}, {std::move(child)}}));
}

// ---- Printing ----

namespace {

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '\r': out += "\\r"; break;
        default: out += c;
        }
    }
    out += '"';
    return out;
}

std::string number(double d) {
    // Infinity has no literal; a decimal that overflows reads back as one.
    if (std::isinf(d))
        return d > 0 ? "1e999" : "-1e999";
    std::string text = fmt::format("{}", d);
    if (text.find_first_of(".eEn") == std::string::npos)
        text += ".0";
    return text;
}

std::string keyPathText(const KeyPath& path) {
    std::string out;
    for (std::size_t i = 0; i < path.components.size(); ++i) {
        if (i)
            out += '.';
        const auto& c = path.components[i];
        if (detail::isKeyword(c))
            out += '#';
        out += c;
    }
    return out;
}

std::string expressionText(const Expression& e) {
    if (const auto* path = std::get_if<KeyPath>(&e))
        return keyPathText(*path);
    if (const auto* scalar = std::get_if<Scalar>(&e))
        return toString(*scalar);
    std::string out = "{";
    const auto& list = std::get<ScalarList>(e);
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i)
            out += ", ";
        out += toString(list[i]);
    }
    return out + "}";
}

// A compound of two or more children prints with operators of its own and
// needs parentheses inside another compound; smaller ones print as a term.
bool printsAsCompound(const Predicate& p) {
    return (p.kind() == Predicate::Kind::conjunction || p.kind() == Predicate::Kind::disjunction) &&
           p.children().size() >= 2;
}

std::string comparisonText(const Comparison& c) {
    std::string out;
    switch (c.quantifier) {
    case Quantifier::direct: break;
    case Quantifier::any: out += "ANY "; break;
    case Quantifier::all: out += "ALL "; break;
    case Quantifier::none: out += "NONE "; break;
    }
    out += expressionText(c.lhs);
    out += ' ';
    out += toString(c.op);
    if (c.options) {
        out += '[';
        if (c.options & kCaseInsensitive)
            out += 'c';
        if (c.options & kDiacriticInsensitive)
            out += 'd';
        out += ']';
    }
    out += ' ';
    out += expressionText(c.rhs);
    return out;
}

} // namespace

std::string toString(const Scalar& value) {
    struct Printer {
        std::string operator()(std::monostate) const { return "nil"; }
        std::string operator()(bool b) const { return b ? "true" : "false"; }
        std::string operator()(std::int64_t i) const { return fmt::format("{}", i); }
        std::string operator()(double d) const { return number(d); }
        std::string operator()(const std::string& s) const { return quoted(s); }
        std::string operator()(const Date& d) const {
            return "DATE(" + number(d.secondsSinceReference) + ")";
        }
        std::string operator()(const Uuid& u) const { return "UUID(\"" + u.toString() + "\")"; }
        std::string operator()(const Bytes& b) const {
            std::string hex;
            for (auto byte : b)
                hex += fmt::format("{:02x}", byte);
            return "BYTES(\"" + hex + "\")";
        }
        std::string operator()(const ObjectID& id) const {
            return fmt::format("OBJECT({}, {})", id.entity, id.key);
        }
    };
    return std::visit(Printer{}, value);
}

std::string_view toString(ComparisonOperator op) {
    switch (op) {
    case ComparisonOperator::equal: return "==";
    case ComparisonOperator::notEqual: return "!=";
    case ComparisonOperator::less: return "<";
    case ComparisonOperator::lessOrEqual: return "<=";
    case ComparisonOperator::greater: return ">";
    case ComparisonOperator::greaterOrEqual: return ">=";
    case ComparisonOperator::between: return "BETWEEN";
    case ComparisonOperator::in: return "IN";
    case ComparisonOperator::contains: return "CONTAINS";
    case ComparisonOperator::beginsWith: return "BEGINSWITH";
    case ComparisonOperator::endsWith: return "ENDSWITH";
    case ComparisonOperator::like: return "LIKE";
    }
    return "?";
}

std::string Predicate::toString() const {
    switch (kind()) {
    case Kind::constant: return constantValue() ? "TRUEPREDICATE" : "FALSEPREDICATE";
    case Kind::comparison: return comparisonText(comparison());
    case Kind::negation: {
        const auto& child = children().front();
        return printsAsCompound(child) ? "NOT (" + child.toString() + ")"
                                       : "NOT " + child.toString();
    }
    case Kind::conjunction:
    case Kind::disjunction: {
        const bool isAnd = kind() == Kind::conjunction;
        if (children().empty())
            return isAnd ? "TRUEPREDICATE" : "FALSEPREDICATE";
        if (children().size() == 1)
            return children().front().toString();
        std::string out;
        for (std::size_t i = 0; i < children().size(); ++i) {
            const auto& child = children()[i];
            if (i)
                out += isAnd ? " AND " : " OR ";
            out += printsAsCompound(child) ? "(" + child.toString() + ")" : child.toString();
        }
        return out;
    }
    }
    return {};
}

} // namespace tasket::objectstore
