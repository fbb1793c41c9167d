// Sort descriptors: a key path (attributes, to-one hops, or a to-many
// relationship's @count), a direction and a comparison. They compile to
// ORDER BY terms for stored rows and to an in-memory comparator for
// ObjectViews; both give the same order, nil first when ascending as SQLite
// orders NULL, and both end with the primary key as the tie-break, in the
// direction of the last key.
#pragma once

#include "objectstore/model/object_view.h"
#include "objectstore/predicate/bound_predicate.h"

#include <string>
#include <vector>

namespace tasket::objectstore {

struct SortDescriptor {
    enum class Comparison {
        plain,                    // numbers by value, text by code point
        localizedCaseInsensitive, // text by the user's locale, ignoring case
    };
    std::string keyPath;
    bool ascending = true;
    Comparison comparison = Comparison::plain;
};

struct SqlOrder {
    /// LEFT JOIN clauses (aliases o1, o2, ...) to add after the predicate's joins.
    std::string joins;
    /// The ORDER BY terms without the keywords, over the main alias t0; never empty.
    std::string orderBy;
};

/// Compiles `descriptors` for entity `entityIndex`; invalidArgument names a
/// key path that does not resolve or crosses a to-many relationship.
[[nodiscard]] Result<SqlOrder> compileSort(const std::vector<SortDescriptor>& descriptors,
                                           const Model& model, std::uint32_t entityIndex);

/// Orders ObjectViews of one entity as compileSort's ORDER BY orders rows.
class ObjectComparator {
  public:
    /// Fails as compileSort does.
    [[nodiscard]] static Result<ObjectComparator>
    make(const std::vector<SortDescriptor>& descriptors, const Model& model,
         std::uint32_t entityIndex);

    /// Negative, zero or positive as `a` sorts before, with or after `b`;
    /// zero only for objects with the same key.
    [[nodiscard]] int compare(const ObjectView& a, const ObjectView& b) const;
    /// Strict weak order for std::sort.
    bool operator()(const ObjectView& a, const ObjectView& b) const { return compare(a, b) < 0; }

  private:
    struct Key {
        BoundKeyPath path;
        bool ascending;
        bool localized;
    };
    ObjectComparator(const Model& model, std::vector<Key> keys, bool tieBreakAscending)
        : m_model(&model), m_keys(std::move(keys)), m_tieBreakAscending(tieBreakAscending) {}

    const Model* m_model;
    std::vector<Key> m_keys;
    bool m_tieBreakAscending;
};

} // namespace tasket::objectstore
