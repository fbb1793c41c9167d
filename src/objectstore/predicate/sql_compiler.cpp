#include "objectstore/predicate/sql_compiler.h"

#include "objectstore/predicate/detail/sql_builder.h"

#include <fmt/format.h>

namespace tasket::objectstore {

namespace {

using detail::Fragment;
using detail::SqlBuilder;
using Op = ComparisonOperator;

Fragment text(std::string sql) {
    return Fragment{std::move(sql), {}};
}

Fragment parameter(const Scalar& value) {
    return Fragment{"?", {detail::bindingFor(value)}};
}

class Compiler {
  public:
    explicit Compiler(const Model& model) : m_model(model), m_builder(model, "t") {}

    // `filter`: the node is not under a NOT, so NULL and 0 both drop the
    // row and a comparison may be written as SQL's own (NULL for a missing
    // value). SQLite reads `x = ?` as ruling out a missing to-one target,
    // turns that hop's LEFT JOIN into a join and can start from the
    // target's index; `x IS ?` rules nothing out.
    //
    // `conjunct`: the node is the root or reached from it through ANDs
    // only, so a row of the main table must satisfy it on its own.
    Fragment node(const BoundNode& n, SqlBuilder::Scope& scope, bool filter,
                  bool conjunct = false) {
        switch (n.kind) {
        case Predicate::Kind::constant: return text(n.value ? "1" : "0");
        case Predicate::Kind::comparison: return comparison(n.comparison, scope, filter, conjunct);
        case Predicate::Kind::negation: {
            Fragment out = text("(NOT ");
            out += node(n.children.front(), scope, false);
            return out += ")";
        }
        case Predicate::Kind::conjunction:
        case Predicate::Kind::disjunction: {
            if (n.children.empty())
                return text(n.kind == Predicate::Kind::conjunction ? "1" : "0");
            std::vector<Fragment> terms;
            const bool and_ = n.kind == Predicate::Kind::conjunction;
            for (const auto& child : n.children)
                terms.push_back(node(child, scope, filter, conjunct && and_));
            return balanced(terms, 0, terms.size(),
                            n.kind == Predicate::Kind::conjunction ? " AND " : " OR ");
        }
        }
        return text("0");
    }

    /// Inner joins that conjuncts were written as, to follow t0 directly.
    std::string m_innerJoins;
    /// Whether those joins can give a row of t0 more than once.
    bool m_repeatsRows = false;

  private:
    // Long AND/OR chains are grouped as a balanced tree: SQLite limits the
    // depth of an expression, and a flat chain is as deep as it is long.
    static Fragment balanced(const std::vector<Fragment>& terms, std::size_t from, std::size_t to,
                             std::string_view joiner) {
        if (to - from == 1)
            return terms[from];
        if (to - from <= 8) {
            Fragment out = text("(");
            for (std::size_t i = from; i < to; ++i) {
                if (i != from)
                    out += joiner;
                out += terms[i];
            }
            return out += ")";
        }
        const std::size_t middle = from + (to - from) / 2;
        Fragment out = text("(");
        out += balanced(terms, from, middle, joiner);
        out += joiner;
        out += balanced(terms, middle, to, joiner);
        return out += ")";
    }

    Fragment operand(const BoundOperand& o, SqlBuilder::Scope& scope, std::uint8_t options) {
        if (const auto* path = std::get_if<BoundKeyPath>(&o))
            return folded(text(m_builder.valueOf(scope, *path, 0)), options);
        return folded(parameter(std::get<Scalar>(o)), options);
    }

    static Fragment folded(Fragment f, std::uint8_t options) {
        if (!options)
            return f;
        Fragment out = text("tk_fold(");
        out += f;
        return out += fmt::format(", {})", options);
    }

    Fragment comparison(const BoundComparison& c, SqlBuilder::Scope& scope, bool filter,
                        bool conjunct) {
        if (c.quantifier == Quantifier::direct)
            return test(operand(c.lhs, scope, 0), c, scope, filter);
        const auto& path = std::get<BoundKeyPath>(c.lhs);
        const std::size_t step = *path.toManyStep;
        const std::string owner = m_builder.hops(scope, path, 0, step);
        const SqlBuilder::ToMany source = m_builder.toMany(owner, path.steps[step]);
        if (c.testsEmptiness) {
            return text(fmt::format("({}EXISTS (SELECT 1 FROM {} WHERE {}))",
                                    c.op == Op::equal ? "NOT " : "", source.from,
                                    source.correlation));
        }
        SqlBuilder::Scope inner{source.elementAlias, source.elementEntity, {}, {}};
        if (c.quantifier == Quantifier::any && selectsElementsByKey(c, path, step)) {
            if (conjunct && step == 0)
                return joinedMatches(c, path, source, inner, scope);
            return ownersOfMatches(c, path, step, owner, source, inner, scope);
        }
        Fragment condition = test(text(m_builder.valueOf(inner, path, step + 1)), c, scope);
        const bool all = c.quantifier == Quantifier::all;
        std::string from = source.from;
        for (const auto& join : inner.joins)
            from += " " + join;
        Fragment out =
            text(fmt::format("({}EXISTS (SELECT 1 FROM {} WHERE {} AND {}", all ? "NOT " : "", from,
                             source.correlation, all ? "NOT " : ""));
        out += condition;
        return out += "))";
    }

    // ANY with = or IN against constants, on the elements themselves or on
    // a column of theirs that has an index (an indexed attribute, a to-one
    // key): the matching elements are found through that index and are
    // usually few, so the owners are better drawn from them than each owner
    // probing its own elements.
    bool selectsElementsByKey(const BoundComparison& c, const BoundKeyPath& path,
                              std::size_t step) const {
        if ((c.op != Op::equal && c.op != Op::in) || c.options != 0 ||
            std::holds_alternative<BoundKeyPath>(c.rhs))
            return false;
        if (path.steps.size() == step + 1)
            return true; // the elements' own keys
        if (path.steps.size() != step + 2)
            return false;
        const PropertyStep& last = path.steps.back();
        const EntityDescription& e = m_model.entity(last.entity);
        if (e.isAttribute(last.property))
            return e.attributes[last.property].indexed;
        return e.storage[last.property - e.attributes.size()] == RelationshipStorage::ForeignKey;
    }

    // "owner.pk IN (SELECT key FROM elements WHERE condition)": uncorrelated,
    // so SQLite can run it once and reach the owners by their keys, where
    // EXISTS would run once per owner. The condition is only a filter there,
    // so it is written without the COALESCE that would keep SQLite from
    // using the index. Elements without an owner are left out, so that the
    // list holds no NULL and the result stays 0 or 1.
    Fragment ownersOfMatches(const BoundComparison& c, const BoundKeyPath& path, std::size_t step,
                             const std::string& owner, const SqlBuilder::ToMany& source,
                             SqlBuilder::Scope& inner, SqlBuilder::Scope& scope) {
        Fragment condition = test(text(m_builder.valueOf(inner, path, step + 1)), c, scope, true);
        std::string from = source.from;
        for (const auto& join : inner.joins)
            from += " " + join;
        // An owner reached through to-one hops may be missing (a NULL key).
        const bool ownerMayBeNull = step > 0;
        Fragment out =
            text(fmt::format("{}{}.pk IN (SELECT {} FROM {} WHERE {}",
                             ownerMayBeNull ? "COALESCE(" : "(", owner, source.ownerKey, from,
                             source.ownerKeyNullable ? source.ownerKey + " IS NOT NULL AND " : ""));
        out += condition;
        return out += ownerMayBeNull ? "), 0)" : "))";
    }

    // The same as a conjunct of the main table's own: its matching elements
    // joined to it. SQLite can then start from the elements' index and
    // reach the rows by key, with no temporary list of owner keys. A row
    // with two matching elements comes out twice, unless the elements are
    // picked by their own key and only one is named.
    Fragment joinedMatches(const BoundComparison& c, const BoundKeyPath& path,
                           const SqlBuilder::ToMany& source, SqlBuilder::Scope& inner,
                           SqlBuilder::Scope& scope) {
        Fragment condition = test(text(m_builder.valueOf(inner, path, 1)), c, scope, true);
        m_innerJoins += " " + source.joined;
        for (const auto& join : inner.joins)
            m_innerJoins += " " + join;
        const auto* list = std::get_if<ScalarList>(&c.rhs);
        if (path.steps.size() != 1 || (list && list->size() != 1))
            m_repeatsRows = true;
        return condition;
    }

    // The comparison of `value` with the right-hand side, written so that it
    // is 0 or 1 even where SQL would give NULL. As a `filter` (where NULL and
    // 0 both mean no) it may give NULL: = against a value, the orderings and
    // IN are then SQL's own.
    Fragment test(const Fragment& value, const BoundComparison& c, SqlBuilder::Scope& scope,
                  bool filter = false) {
        const Fragment lhs = folded(value, c.options);
        Fragment out;
        switch (c.op) {
        case Op::equal:
        case Op::notEqual: {
            const auto* constant = std::get_if<Scalar>(&c.rhs);
            const bool plain = filter && c.op == Op::equal && constant &&
                               !std::holds_alternative<std::monostate>(*constant);
            out = text("(");
            out += lhs;
            out += plain ? " = " : c.op == Op::equal ? " IS " : " IS NOT ";
            out += operand(c.rhs, scope, c.options);
            return out += ")";
        }
        case Op::less:
        case Op::lessOrEqual:
        case Op::greater:
        case Op::greaterOrEqual:
            out = text(filter ? "(" : "COALESCE(");
            out += lhs;
            out += fmt::format(" {} ", toString(c.op));
            out += operand(c.rhs, scope, c.options);
            return out += filter ? ")" : ", 0)";
        case Op::between: {
            const auto& list = std::get<ScalarList>(c.rhs);
            out = text(filter ? "(" : "COALESCE(");
            out += lhs;
            out += " BETWEEN ";
            out += folded(parameter(list[0]), c.options);
            out += " AND ";
            out += folded(parameter(list[1]), c.options);
            return out += filter ? ")" : ", 0)";
        }
        case Op::in: {
            const auto& list = std::get<ScalarList>(c.rhs);
            std::vector<const Scalar*> values;
            bool hasNil = false;
            for (const auto& item : list) {
                if (std::holds_alternative<std::monostate>(item))
                    hasNil = true;
                else
                    values.push_back(&item);
            }
            if (values.empty() && !hasNil)
                return text("0");
            out = text("(");
            if (hasNil) {
                out += lhs;
                out += " IS NULL";
            }
            if (!values.empty()) {
                if (hasNil)
                    out += " OR ";
                if (!filter)
                    out += "COALESCE(";
                out += lhs;
                out += " IN (";
                for (std::size_t i = 0; i < values.size(); ++i) {
                    if (i)
                        out += ", ";
                    out += folded(parameter(*values[i]), c.options);
                }
                out += filter ? ")" : "), 0)";
            }
            return out += ")";
        }
        case Op::contains:
        case Op::beginsWith:
        case Op::endsWith:
        case Op::like: {
            const char* function = c.op == Op::contains     ? "tk_contains"
                                   : c.op == Op::beginsWith ? "tk_beginswith"
                                   : c.op == Op::endsWith   ? "tk_endswith"
                                                            : "tk_like";
            // The functions fold both sides themselves and give 0 for NULL.
            out = text(fmt::format("{}(", function));
            out += value;
            out += ", ";
            out += operand(c.rhs, scope, 0);
            return out += fmt::format(", {})", c.options);
        }
        }
        return text("0");
    }

    const Model& m_model;
    SqlBuilder m_builder;
};

} // namespace

SqlPredicate compileToSql(const BoundPredicate& predicate) {
    Compiler compiler(predicate.model());
    detail::SqlBuilder::Scope scope{"t0", predicate.entityIndex(), {}, {}};
    Fragment where = compiler.node(predicate.root(), scope, true, true);
    SqlPredicate out;
    out.joins = std::move(compiler.m_innerJoins);
    out.repeatsRows = compiler.m_repeatsRows;
    for (const auto& join : scope.joins) {
        if (!out.joins.empty())
            out.joins += ' ';
        out.joins += join;
    }
    out.where = std::move(where.sql);
    out.bindings = std::move(where.values);
    return out;
}

Result<SqlPredicate> compileToSql(const Predicate& predicate, const Model& model,
                                  std::uint32_t entityIndex) {
    auto bound = BoundPredicate::bind(predicate, model, entityIndex);
    if (!bound)
        return std::unexpected(bound.error());
    return compileToSql(*bound);
}

} // namespace tasket::objectstore
