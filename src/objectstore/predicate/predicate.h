// The predicate language of the object store: format strings such as
// "category.categoryID IN %@ AND title CONTAINS[c] %@" parsed into an
// immutable syntax tree that is shared by value. Arguments are substituted
// at parse time, so a parsed predicate holds only constants and key paths.
// Binding to an entity (bound_predicate.h) resolves and type-checks the key
// paths; the SQL compiler and the in-memory evaluator work from that form.
#pragma once

#include "objectstore/model/value.h"
#include "platform/error.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace tasket::objectstore {

using platform::Result;

// ---- Constants and arguments ----

/// One constant of the language; std::monostate is nil and an ObjectID
/// stands for a related object.
using Scalar = std::variant<std::monostate, bool, std::int64_t, double, std::string, Date, Uuid,
                            Bytes, ObjectID>;
using ScalarList = std::vector<Scalar>;

/// A format argument: a scalar, or a list of scalars for IN and BETWEEN.
/// %K takes a text argument naming a key path.
struct PredicateArgument {
    std::variant<Scalar, ScalarList> value;

    PredicateArgument() = default;
    PredicateArgument(std::nullptr_t) {}
    PredicateArgument(bool b) : value(Scalar(b)) {}
    template <class I>
    requires(std::is_integral_v<I> && !std::is_same_v<I, bool>) PredicateArgument(I i)
        : value(Scalar(static_cast<std::int64_t>(i))) {}
    PredicateArgument(double d) : value(Scalar(d)) {}
    PredicateArgument(const char* s) : value(Scalar(std::string(s))) {}
    PredicateArgument(std::string s) : value(Scalar(std::move(s))) {}
    PredicateArgument(std::string_view s) : value(Scalar(std::string(s))) {}
    PredicateArgument(Date d) : value(Scalar(d)) {}
    PredicateArgument(Uuid u) : value(Scalar(u)) {}
    PredicateArgument(Bytes b) : value(Scalar(std::move(b))) {}
    PredicateArgument(ObjectID id) : value(Scalar(id)) {}
    PredicateArgument(Scalar s) : value(std::move(s)) {}
    PredicateArgument(ScalarList list) : value(std::move(list)) {}
    PredicateArgument(const std::vector<std::string>& list)
        : value(ScalarList(list.begin(), list.end())) {}
    PredicateArgument(const std::vector<ObjectID>& list)
        : value(ScalarList(list.begin(), list.end())) {}
    PredicateArgument(const std::vector<Uuid>& list)
        : value(ScalarList(list.begin(), list.end())) {}
};

// ---- Syntax tree ----

/// Option bits of a string comparison: [c] and [d].
inline constexpr std::uint8_t kCaseInsensitive = 1;
inline constexpr std::uint8_t kDiacriticInsensitive = 2;

/// A dotted key path ("category.categoryID", "tags.@count").
struct KeyPath {
    std::vector<std::string> components;
    std::size_t position = 0; // character offset in the text it was parsed from

    /// The components of `dotted`, split at every dot, unchecked.
    [[nodiscard]] static KeyPath split(std::string_view dotted, std::size_t position = 0);
};

/// One side of a comparison: a key path, a constant, or a list of constants.
using Expression = std::variant<KeyPath, Scalar, ScalarList>;

enum class ComparisonOperator {
    equal,
    notEqual,
    less,
    lessOrEqual,
    greater,
    greaterOrEqual,
    between,
    in,
    contains,
    beginsWith,
    endsWith,
    like,
};

/// How a comparison ranges over a to-many key path. `direct` is no prefix;
/// SOME parses as `any`.
enum class Quantifier { direct, any, all, none };

struct Comparison {
    Quantifier quantifier = Quantifier::direct;
    Expression lhs;
    ComparisonOperator op = ComparisonOperator::equal;
    std::uint8_t options = 0; // kCaseInsensitive | kDiacriticInsensitive
    Expression rhs;
    std::size_t position = 0; // character offset of the comparison
};

/// An immutable predicate; copies share one tree.
class Predicate {
  public:
    enum class Kind { constant, comparison, conjunction, disjunction, negation };

    /// TRUEPREDICATE.
    Predicate();

    /// Parses `format`, substituting `arguments` for %@ %d %i %ld %f %K in
    /// order. Fails with parseError (malformed text) or invalidArgument
    /// (argument count or kind); the message names the character offset.
    [[nodiscard]] static Result<Predicate>
    parse(std::string_view format, const std::vector<PredicateArgument>& arguments = {});

    [[nodiscard]] static Predicate constant(bool value);
    [[nodiscard]] static Predicate comparison(Comparison comparison);

    [[nodiscard]] Kind kind() const;
    /// For Kind::constant.
    [[nodiscard]] bool constantValue() const;
    /// For Kind::comparison.
    [[nodiscard]] const Comparison& comparison() const;
    /// For conjunction, disjunction (any number) and negation (exactly one).
    [[nodiscard]] const std::vector<Predicate>& children() const;

    /// The predicate in the language, so that parse(toString()) gives the
    /// same tree back. Dates, UUIDs, bytes and object IDs print as typed
    /// literals: DATE(12.5), UUID("..."), BYTES("0aff"), OBJECT(entity, key).
    [[nodiscard]] std::string toString() const;

  private:
    struct Node;
    explicit Predicate(std::shared_ptr<const Node> node) : m_node(std::move(node)) {}
    friend Predicate andPredicate(std::vector<Predicate>);
    friend Predicate orPredicate(std::vector<Predicate>);
    friend Predicate notPredicate(Predicate);

    std::shared_ptr<const Node> m_node;
};

// ---- Compound builders ----

/// Matches when every child matches; the AND of nothing matches everything.
[[nodiscard]] Predicate andPredicate(std::vector<Predicate> children);
/// Matches when some child matches; the OR of nothing matches nothing.
[[nodiscard]] Predicate orPredicate(std::vector<Predicate> children);
[[nodiscard]] Predicate notPredicate(Predicate child);

/// The text of one constant as toString() writes it.
[[nodiscard]] std::string toString(const Scalar& value);
/// The text of an operator as toString() writes it ("==", "CONTAINS").
[[nodiscard]] std::string_view toString(ComparisonOperator op);

} // namespace tasket::objectstore
