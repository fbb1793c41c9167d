#include "objectstore/predicate/detail/sql_builder.h"

#include <fmt/format.h>

namespace tasket::objectstore::detail {

Fragment& Fragment::operator+=(const Fragment& other) {
    sql += other.sql;
    values.insert(values.end(), other.values.begin(), other.values.end());
    return *this;
}

Fragment& Fragment::operator+=(std::string_view text) {
    sql += text;
    return *this;
}

Value bindingFor(const Scalar& constant) {
    struct Visitor {
        Value operator()(std::monostate) const { return {}; }
        Value operator()(bool b) const { return std::int64_t{b ? 1 : 0}; }
        Value operator()(std::int64_t i) const { return i; }
        Value operator()(double d) const { return d; }
        Value operator()(const std::string& s) const { return s; }
        Value operator()(const Date& d) const { return d.secondsSinceReference; }
        Value operator()(const Uuid& u) const { return u.toString(); }
        Value operator()(const Bytes& b) const { return b; }
        Value operator()(const ObjectID& id) const { return id.key; }
    };
    return std::visit(Visitor{}, constant);
}

std::string SqlBuilder::nextAlias() {
    return fmt::format("{}{}", m_prefix, m_next++);
}

std::string SqlBuilder::hops(Scope& scope, const BoundKeyPath& path, std::size_t from,
                             std::size_t to) {
    std::string alias = scope.alias;
    for (std::size_t i = from; i < to; ++i) {
        const PropertyStep& step = path.steps[i];
        const std::string key = fmt::format("{}.{}", alias, step.property);
        if (auto found = scope.hopAliases.find(key); found != scope.hopAliases.end()) {
            alias = found->second;
            continue;
        }
        const EntityDescription& e = m_model.entity(step.entity);
        const std::size_t ri = step.property - e.attributes.size();
        const RelationshipDescription& r = e.relationships[ri];
        const EntityDescription& d = m_model.entity(r.destinationIndex);
        const std::string next = nextAlias();
        if (e.storage[ri] == RelationshipStorage::ForeignKey) {
            scope.joins.push_back(fmt::format("LEFT JOIN {} AS {} ON {}.pk = {}.{}",
                                              quoteIdentifier(d.name), next, next, alias,
                                              quoteIdentifier(r.name)));
        } else {
            // The passive side of a one-to-one: the partner holds the column.
            const std::string lookup = nextAlias();
            const auto& inverse = d.relationships[r.inversePropertyIndex - d.attributes.size()];
            scope.joins.push_back(fmt::format("LEFT JOIN {0} AS {1} ON {1}.pk = (SELECT {2}.pk "
                                              "FROM {0} AS {2} WHERE {2}.{3} = {4}.pk "
                                              "ORDER BY {2}.pk LIMIT 1)",
                                              quoteIdentifier(d.name), next, lookup,
                                              quoteIdentifier(inverse.name), alias));
        }
        scope.hopAliases.emplace(key, next);
        alias = next;
    }
    return alias;
}

SqlBuilder::ToMany SqlBuilder::toMany(const std::string& ownerAlias, const PropertyStep& step) {
    const EntityDescription& e = m_model.entity(step.entity);
    const std::size_t ri = step.property - e.attributes.size();
    const RelationshipDescription& r = e.relationships[ri];
    const EntityDescription& d = m_model.entity(r.destinationIndex);
    ToMany out;
    out.elementAlias = nextAlias();
    out.elementEntity = r.destinationIndex;
    const std::string& element = out.elementAlias;
    switch (e.storage[ri]) {
    case RelationshipStorage::JoinTable:
    case RelationshipStorage::JoinTableInverse: {
        const bool owns = e.storage[ri] == RelationshipStorage::JoinTable;
        const std::string join = nextAlias();
        std::string tableName = e.joinTables[ri];
        if (tableName.empty())
            tableName = d.joinTables[r.inversePropertyIndex - d.attributes.size()];
        // The join table, then the elements it points at.
        const std::string table = fmt::format("{} AS {}", quoteIdentifier(tableName), join);
        const std::string elements =
            fmt::format("JOIN {} AS {} ON {}.pk = {}.{}", quoteIdentifier(d.name), element, element,
                        join, owns ? "dst" : "src");
        out.from = table + " " + elements;
        out.ownerKey = fmt::format("{}.{}", join, owns ? "src" : "dst");
        out.correlation = fmt::format("{} = {}.pk", out.ownerKey, ownerAlias);
        out.joined = fmt::format("JOIN {} ON {} {}", table, out.correlation, elements);
        break;
    }
    case RelationshipStorage::InverseColumn:
    case RelationshipStorage::ForeignKey: {
        const auto& inverse = d.relationships[r.inversePropertyIndex - d.attributes.size()];
        out.from = fmt::format("{} AS {}", quoteIdentifier(d.name), element);
        out.ownerKey = fmt::format("{}.{}", element, quoteIdentifier(inverse.name));
        out.ownerKeyNullable = true;
        out.correlation = fmt::format("{} = {}.pk", out.ownerKey, ownerAlias);
        out.joined = fmt::format("JOIN {} ON {}", out.from, out.correlation);
        break;
    }
    }
    return out;
}

std::string SqlBuilder::valueOf(Scope& scope, const BoundKeyPath& path, std::size_t from) {
    if (from == path.steps.size())
        return scope.alias + ".pk";
    if (path.count) {
        const std::size_t step = *path.toManyStep;
        const std::string owner = hops(scope, path, from, step);
        const ToMany source = toMany(owner, path.steps[step]);
        return fmt::format("(SELECT COUNT(*) FROM {} WHERE {})", source.from, source.correlation);
    }
    const std::string owner = hops(scope, path, from, path.steps.size() - 1);
    const PropertyStep& last = path.steps.back();
    const EntityDescription& e = m_model.entity(last.entity);
    if (e.isAttribute(last.property))
        return owner + "." + quoteIdentifier(e.attributes[last.property].name);
    const std::size_t ri = last.property - e.attributes.size();
    if (e.storage[ri] == RelationshipStorage::ForeignKey)
        return owner + "." + quoteIdentifier(e.relationships[ri].name);
    return hops(scope, path, from, path.steps.size()) + ".pk";
}

} // namespace tasket::objectstore::detail
