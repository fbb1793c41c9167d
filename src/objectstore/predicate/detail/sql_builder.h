// Pieces of SQL shared by the predicate compiler and the sort compiler:
// quoting, table aliases, LEFT JOINs for to-one hops (one per distinct hop),
// the FROM and correlation of a to-many step, and the SQL value of a bound
// key path. It writes against the schema the engine creates: a table per
// entity named as the entity, `pk`, a column per attribute and per
// foreign-key relationship, and join tables with `src` and `dst`.
#pragma once

#include "objectstore/model/sql_identifier.h"
#include "objectstore/predicate/bound_predicate.h"

#include <map>
#include <string>
#include <vector>

namespace tasket::objectstore::detail {

/// SQL text with the values of its ?s, in order.
struct Fragment {
    std::string sql;
    std::vector<Value> values;

    Fragment& operator+=(const Fragment& other);
    Fragment& operator+=(std::string_view text);
};

/// The value bound for a constant: nil, int64 (bools, object keys), double
/// (dates), text (UUIDs upper-case) or bytes.
[[nodiscard]] Value bindingFor(const Scalar& constant);

class SqlBuilder {
  public:
    /// A FROM scope: its table alias, entity, and the joins added to it.
    struct Scope {
        std::string alias;
        std::uint32_t entity = 0;
        std::vector<std::string> joins;
        std::map<std::string, std::string> hopAliases;
    };

    /// The subquery source of one to-many step from `ownerAlias`.
    struct ToMany {
        std::string from;        // tables, with the element table aliased elementAlias
        std::string correlation; // ties the elements to the owner
        std::string elementAlias;
        std::uint32_t elementEntity = 0;
        std::string ownerKey;          // the column in `from` that holds the owner's pk
        bool ownerKeyNullable = false; // elements may have no owner (a to-one column)
        std::string joined;            // the same tables as inner joins to the owner
    };

    /// Aliases are `prefix` followed by a number, so that two builders with
    /// different prefixes can share one query.
    SqlBuilder(const Model& model, std::string prefix)
        : m_model(model), m_prefix(std::move(prefix)) {}

    [[nodiscard]] std::string nextAlias();

    /// The alias reached by the to-one steps [from, to) of `path` from the
    /// scope's own alias, adding LEFT JOINs to the scope as needed.
    [[nodiscard]] std::string hops(Scope& scope, const BoundKeyPath& path, std::size_t from,
                                   std::size_t to);

    /// The SQL value of `path` from step `from` on, in `scope`: a column, a
    /// related pk, an element's own pk (from == steps.size()) or a count.
    [[nodiscard]] std::string valueOf(Scope& scope, const BoundKeyPath& path, std::size_t from);

    [[nodiscard]] ToMany toMany(const std::string& ownerAlias, const PropertyStep& step);

  private:
    const Model& m_model;
    std::string m_prefix;
    int m_next = 1;
};

} // namespace tasket::objectstore::detail
