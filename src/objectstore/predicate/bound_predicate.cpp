#include "objectstore/predicate/bound_predicate.h"

#include <fmt/format.h>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

namespace {

// Looks a property up by name without the model's out-of-line helpers, so
// that this library needs only the model's declarations.
std::optional<std::size_t> findProperty(const EntityDescription& e, std::string_view name) {
    for (std::size_t i = 0; i < e.attributes.size(); ++i)
        if (e.attributes[i].name == name)
            return i;
    for (std::size_t i = 0; i < e.relationships.size(); ++i)
        if (e.relationships[i].name == name)
            return e.attributes.size() + i;
    return std::nullopt;
}

ValueKind kindOf(AttributeType type) {
    switch (type) {
    case AttributeType::String: return ValueKind::text;
    case AttributeType::Date: return ValueKind::date;
    case AttributeType::Bool:
    case AttributeType::Int16:
    case AttributeType::Int32:
    case AttributeType::Int64:
    case AttributeType::Double: return ValueKind::number;
    case AttributeType::Binary: return ValueKind::binary;
    case AttributeType::UUID: return ValueKind::uuid;
    }
    return ValueKind::nil;
}

std::string_view kindName(ValueKind kind) {
    switch (kind) {
    case ValueKind::nil: return "nil";
    case ValueKind::number: return "a number";
    case ValueKind::text: return "text";
    case ValueKind::date: return "a date";
    case ValueKind::uuid: return "a UUID";
    case ValueKind::binary: return "binary data";
    case ValueKind::object: return "an object";
    }
    return "?";
}

struct Kind {
    ValueKind kind = ValueKind::nil;
    std::uint32_t entity = 0; // for objects
};

Kind constantKind(const Scalar& s) {
    struct Visitor {
        Kind operator()(std::monostate) const { return {ValueKind::nil}; }
        Kind operator()(bool) const { return {ValueKind::number}; }
        Kind operator()(std::int64_t) const { return {ValueKind::number}; }
        Kind operator()(double) const { return {ValueKind::number}; }
        Kind operator()(const std::string&) const { return {ValueKind::text}; }
        Kind operator()(const Date&) const { return {ValueKind::date}; }
        Kind operator()(const Uuid&) const { return {ValueKind::uuid}; }
        Kind operator()(const Bytes&) const { return {ValueKind::binary}; }
        Kind operator()(const ObjectID& id) const { return {ValueKind::object, id.entity}; }
    };
    return std::visit(Visitor{}, s);
}

bool compatible(Kind a, Kind b) {
    if (a.kind == ValueKind::nil || b.kind == ValueKind::nil)
        return true;
    return a.kind == b.kind && (a.kind != ValueKind::object || a.entity == b.entity);
}

bool orderable(Kind k) {
    return k.kind == ValueKind::nil || k.kind == ValueKind::number || k.kind == ValueKind::text ||
           k.kind == ValueKind::date;
}

bool isSymmetricOrOrdering(ComparisonOperator op) {
    using Op = ComparisonOperator;
    return op == Op::equal || op == Op::notEqual || op == Op::less || op == Op::lessOrEqual ||
           op == Op::greater || op == Op::greaterOrEqual;
}

ComparisonOperator mirrored(ComparisonOperator op) {
    using Op = ComparisonOperator;
    switch (op) {
    case Op::less: return Op::greater;
    case Op::lessOrEqual: return Op::greaterOrEqual;
    case Op::greater: return Op::less;
    case Op::greaterOrEqual: return Op::lessOrEqual;
    default: return op;
    }
}

class Binder {
  public:
    Binder(const Model& model, std::uint32_t entity) : m_model(model), m_entity(entity) {}

    Result<BoundNode> bind(const Predicate& p) {
        BoundNode node;
        node.kind = p.kind();
        switch (p.kind()) {
        case Predicate::Kind::constant: node.value = p.constantValue(); return node;
        case Predicate::Kind::comparison: return comparison(p.comparison());
        case Predicate::Kind::conjunction:
        case Predicate::Kind::disjunction:
        case Predicate::Kind::negation:
            for (const auto& child : p.children()) {
                auto bound = bind(child);
                if (!bound)
                    return bound;
                node.children.push_back(std::move(*bound));
            }
            return node;
        }
        return node;
    }

  private:
    Result<BoundOperand> operand(const Expression& e) {
        if (const auto* path = std::get_if<KeyPath>(&e)) {
            auto resolved = resolveKeyPath(m_model, m_entity, *path);
            if (!resolved)
                return std::unexpected(resolved.error());
            return BoundOperand(std::move(*resolved));
        }
        if (const auto* scalar = std::get_if<Scalar>(&e))
            return BoundOperand(*scalar);
        return BoundOperand(std::get<ScalarList>(e));
    }

    static std::string describe(const BoundOperand& o) {
        if (const auto* path = std::get_if<BoundKeyPath>(&o))
            return "'" + path->text + "'";
        if (const auto* scalar = std::get_if<Scalar>(&o))
            return toString(*scalar);
        return "a list";
    }

    static Kind pathKind(const BoundKeyPath& path) { return {path.kind, path.objectEntity}; }

    std::string kindText(Kind k) const {
        if (k.kind == ValueKind::object && k.entity < m_model.entities().size())
            return "an object of " + m_model.entity(k.entity).name;
        return std::string(kindName(k.kind));
    }

    // Converts a constant to the representation the other side stores:
    // UUID text to a UUID, and numbers met by a Double attribute to double,
    // since SQLite converts them so when it compares with a REAL column.
    Result<Scalar> convert(const Scalar& s, const BoundKeyPath& against, std::size_t position) {
        if (against.kind == ValueKind::uuid) {
            if (const auto* text = std::get_if<std::string>(&s)) {
                auto uuid = Uuid::parse(*text);
                if (!uuid)
                    return fail(Errc::invalidArgument,
                                fmt::format("\"{}\" is not a UUID, compared with '{}' at offset {}",
                                            *text, against.text, position));
                return Scalar(*uuid);
            }
        }
        if (against.kind == ValueKind::number && !against.count && !against.steps.empty()) {
            const auto& last = against.steps.back();
            const auto& e = m_model.entity(last.entity);
            if (e.isAttribute(last.property) &&
                e.attributes[last.property].type == AttributeType::Double) {
                if (const auto* i = std::get_if<std::int64_t>(&s))
                    return Scalar(static_cast<double>(*i));
                if (const auto* b = std::get_if<bool>(&s))
                    return Scalar(*b ? 1.0 : 0.0);
            }
        }
        return s;
    }

    Result<void> convertAgainst(BoundOperand& constant, const BoundOperand& other,
                                std::size_t position) {
        const auto* path = std::get_if<BoundKeyPath>(&other);
        if (!path)
            return {};
        if (auto* scalar = std::get_if<Scalar>(&constant)) {
            auto converted = convert(*scalar, *path, position);
            if (!converted)
                return std::unexpected(converted.error());
            *scalar = std::move(*converted);
        } else if (auto* list = std::get_if<ScalarList>(&constant)) {
            for (auto& item : *list) {
                auto converted = convert(item, *path, position);
                if (!converted)
                    return std::unexpected(converted.error());
                item = std::move(*converted);
            }
        }
        return {};
    }

    Result<BoundNode> comparison(const Comparison& c) {
        auto lhs = operand(c.lhs);
        if (!lhs)
            return std::unexpected(lhs.error());
        auto rhs = operand(c.rhs);
        if (!rhs)
            return std::unexpected(rhs.error());
        BoundComparison b{c.quantifier, std::move(*lhs), c.op, c.options, std::move(*rhs), false};
        const std::string where =
            fmt::format("'{}' at offset {}", Predicate::comparison(c).toString(), c.position);

        auto crossesToMany = [](const BoundOperand& o) {
            const auto* path = std::get_if<BoundKeyPath>(&o);
            return path && path->toManyStep && !path->count;
        };
        if (crossesToMany(b.rhs)) {
            if (crossesToMany(b.lhs))
                return fail(Errc::invalidArgument,
                            "a comparison may range over one to-many key path only: " + where);
            if (!isSymmetricOrOrdering(b.op))
                return fail(Errc::invalidArgument,
                            "the to-many key path must be on the left: " + where);
            std::swap(b.lhs, b.rhs);
            b.op = mirrored(b.op);
        }

        // Types.
        auto kinds = [&](const BoundOperand& o) {
            std::vector<Kind> out;
            if (const auto* path = std::get_if<BoundKeyPath>(&o))
                out.push_back(pathKind(*path));
            else if (const auto* scalar = std::get_if<Scalar>(&o))
                out.push_back(constantKind(*scalar));
            else
                for (const auto& item : std::get<ScalarList>(o))
                    out.push_back(constantKind(item));
            return out;
        };
        if (auto r = convertAgainst(b.rhs, b.lhs, c.position); !r)
            return std::unexpected(r.error());
        if (auto r = convertAgainst(b.lhs, b.rhs, c.position); !r)
            return std::unexpected(r.error());

        using Op = ComparisonOperator;
        const bool rhsIsList = std::holds_alternative<ScalarList>(b.rhs);
        if (std::holds_alternative<ScalarList>(b.lhs))
            return fail(Errc::invalidArgument, "a list can only follow IN or BETWEEN: " + where);
        if ((b.op == Op::in || b.op == Op::between) && !rhsIsList)
            return fail(
                Errc::invalidArgument,
                fmt::format("{} needs a list {{...}} on the right: {}", toString(b.op), where));
        if (rhsIsList && b.op != Op::in && b.op != Op::between)
            return fail(Errc::invalidArgument, "a list can only follow IN or BETWEEN: " + where);
        if (b.op == Op::between && std::get<ScalarList>(b.rhs).size() != 2)
            return fail(Errc::invalidArgument,
                        "BETWEEN needs a list of two values {low, high}: " + where);

        const Kind left = kinds(b.lhs).front();
        const bool ordering = b.op == Op::less || b.op == Op::lessOrEqual || b.op == Op::greater ||
                              b.op == Op::greaterOrEqual || b.op == Op::between;
        const bool textOperator = b.op == Op::contains || b.op == Op::beginsWith ||
                                  b.op == Op::endsWith || b.op == Op::like;
        auto isText = [](Kind k) { return k.kind == ValueKind::nil || k.kind == ValueKind::text; };
        for (const Kind right : kinds(b.rhs)) {
            if (!compatible(left, right))
                return fail(Errc::invalidArgument,
                            fmt::format("type mismatch: {} is {}, compared with {}: {}",
                                        describe(b.lhs), kindText(left), kindText(right), where));
            if (ordering && (!orderable(left) || !orderable(right)))
                return fail(Errc::invalidArgument,
                            fmt::format("{} cannot be ordered: {}",
                                        kindName(orderable(left) ? right.kind : left.kind), where));
            if ((textOperator || b.options) && (!isText(left) || !isText(right)))
                return fail(Errc::invalidArgument,
                            fmt::format("{} applies to text only, not {}: {}",
                                        textOperator ? toString(b.op) : std::string_view("[c]/[d]"),
                                        kindName(isText(left) ? right.kind : left.kind), where));
        }

        // Quantifiers.
        const auto* path = std::get_if<BoundKeyPath>(&b.lhs);
        const bool toMany = path && path->toManyStep && !path->count;
        if (path && path->count && b.quantifier != Quantifier::direct)
            return fail(Errc::invalidArgument, "@count takes no ANY, ALL, NONE or SOME: " + where);
        if (!toMany) {
            if (b.quantifier != Quantifier::direct)
                return fail(
                    Errc::invalidArgument,
                    "ANY, ALL, NONE and SOME need a key path through a to-many relationship: " +
                        where);
            return leaf(std::move(b));
        }
        const auto* rhsScalar = std::get_if<Scalar>(&b.rhs);
        if (path->endsAtCollection() && rhsScalar &&
            std::holds_alternative<std::monostate>(*rhsScalar) &&
            (b.op == Op::equal || b.op == Op::notEqual) && b.quantifier != Quantifier::all) {
            b.testsEmptiness = true;
        } else if (b.quantifier == Quantifier::direct) {
            return fail(
                Errc::invalidArgument,
                fmt::format("'{}' is a to-many key path and needs ANY, ALL, NONE or SOME: {}",
                            path->text, where));
        }
        if (b.quantifier == Quantifier::none || b.quantifier == Quantifier::direct) {
            const bool negate = b.quantifier == Quantifier::none;
            b.quantifier = Quantifier::any;
            if (negate) {
                BoundNode node;
                node.kind = Predicate::Kind::negation;
                node.children.push_back(leaf(std::move(b)));
                return node;
            }
        }
        return leaf(std::move(b));
    }

    static BoundNode leaf(BoundComparison b) {
        BoundNode node;
        node.kind = Predicate::Kind::comparison;
        node.comparison = std::move(b);
        return node;
    }

    const Model& m_model;
    std::uint32_t m_entity;
};

} // namespace

Result<BoundKeyPath> resolveKeyPath(const Model& model, std::uint32_t entity, const KeyPath& path) {
    BoundKeyPath out;
    for (std::size_t i = 0; i < path.components.size(); ++i) {
        if (i)
            out.text += '.';
        out.text += path.components[i];
    }
    out.position = path.position;
    if (!model.isFinalized())
        return fail(Errc::invalidArgument, "the model is not finalized");
    if (entity >= model.entities().size())
        return fail(Errc::invalidArgument, fmt::format("no entity with index {}", entity));

    std::uint32_t current = entity;
    for (std::size_t i = 0; i < path.components.size(); ++i) {
        const std::string& name = path.components[i];
        const EntityDescription& e = model.entity(current);
        const bool last = i + 1 == path.components.size();
        if (name == "@count") {
            if (i == 0 || !last || !out.toManyStep || *out.toManyStep + 1 != out.steps.size())
                return fail(
                    Errc::invalidArgument,
                    fmt::format("@count must follow a to-many relationship, in '{}' at offset {}",
                                out.text, path.position));
            out.count = true;
            out.kind = ValueKind::number;
            return out;
        }
        auto property = findProperty(e, name);
        if (!property)
            return fail(Errc::invalidArgument,
                        fmt::format("unknown key '{}': {} has no property '{}' (at offset {})",
                                    out.text, e.name, name, path.position));
        out.steps.push_back(PropertyStep{current, *property});
        if (e.isAttribute(*property)) {
            if (!last)
                return fail(Errc::invalidArgument,
                            fmt::format("unknown key '{}': {}.{} is an attribute and has no "
                                        "properties (at offset {})",
                                        out.text, e.name, name, path.position));
            out.kind = kindOf(e.attributes[*property].type);
            return out;
        }
        const auto& r = e.relationship(*property);
        if (r.toMany) {
            if (out.toManyStep)
                return fail(
                    Errc::invalidArgument,
                    fmt::format(
                        "key path '{}' crosses more than one to-many relationship (at offset {})",
                        out.text, path.position));
            out.toManyStep = out.steps.size() - 1;
        }
        current = r.destinationIndex;
        out.kind = ValueKind::object;
        out.objectEntity = current;
    }
    return out;
}

Result<BoundPredicate> BoundPredicate::bind(const Predicate& predicate, const Model& model,
                                            std::uint32_t entityIndex) {
    if (!model.isFinalized())
        return fail(Errc::invalidArgument, "the model is not finalized");
    if (entityIndex >= model.entities().size())
        return fail(Errc::invalidArgument, fmt::format("no entity with index {}", entityIndex));
    auto root = Binder(model, entityIndex).bind(predicate);
    if (!root)
        return std::unexpected(root.error());
    return BoundPredicate(std::make_shared<const BoundNode>(std::move(*root)), model, entityIndex);
}

} // namespace tasket::objectstore
