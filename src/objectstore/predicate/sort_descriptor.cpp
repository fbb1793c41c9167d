#include "objectstore/predicate/sort_descriptor.h"

#include "objectstore/predicate/detail/key_path_reader.h"
#include "objectstore/predicate/detail/scalar_compare.h"
#include "objectstore/predicate/detail/sql_builder.h"
#include "objectstore/predicate/detail/text.h"

#include <fmt/format.h>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

namespace {

Result<BoundKeyPath> resolveSortKey(const SortDescriptor& d, const Model& model,
                                    std::uint32_t entity) {
    auto bound = resolveKeyPath(model, entity, KeyPath::split(d.keyPath));
    if (!bound)
        return bound;
    if (bound->toManyStep && !bound->count)
        return fail(
            Errc::invalidArgument,
            fmt::format("cannot sort by '{}': it crosses a to-many relationship", d.keyPath));
    return bound;
}

bool tieBreakAscending(const std::vector<SortDescriptor>& descriptors) {
    return descriptors.empty() || descriptors.back().ascending;
}

} // namespace

Result<SqlOrder> compileSort(const std::vector<SortDescriptor>& descriptors, const Model& model,
                             std::uint32_t entityIndex) {
    if (!model.isFinalized() || entityIndex >= model.entities().size())
        return fail(Errc::invalidArgument, "sorting needs a finalized model and an entity of it");
    detail::SqlBuilder builder(model, "o");
    detail::SqlBuilder::Scope scope{"t0", entityIndex, {}, {}};
    SqlOrder out;
    for (const auto& d : descriptors) {
        auto path = resolveSortKey(d, model, entityIndex);
        if (!path)
            return std::unexpected(path.error());
        out.orderBy += builder.valueOf(scope, *path, 0);
        if (d.comparison == SortDescriptor::Comparison::localizedCaseInsensitive &&
            path->kind == ValueKind::text)
            out.orderBy += " COLLATE TK_LOCALIZED";
        out.orderBy += d.ascending ? " ASC, " : " DESC, ";
    }
    // Ties go the way of the last key, so an index ordered by the keys and
    // then by pk serves the whole order in either direction.
    out.orderBy += tieBreakAscending(descriptors) ? "t0.pk ASC" : "t0.pk DESC";
    for (const auto& join : scope.joins) {
        if (!out.joins.empty())
            out.joins += ' ';
        out.joins += join;
    }
    return out;
}

Result<ObjectComparator> ObjectComparator::make(const std::vector<SortDescriptor>& descriptors,
                                                const Model& model, std::uint32_t entityIndex) {
    if (!model.isFinalized() || entityIndex >= model.entities().size())
        return fail(Errc::invalidArgument, "sorting needs a finalized model and an entity of it");
    std::vector<Key> keys;
    for (const auto& d : descriptors) {
        auto path = resolveSortKey(d, model, entityIndex);
        if (!path)
            return std::unexpected(path.error());
        const bool localized =
            d.comparison == SortDescriptor::Comparison::localizedCaseInsensitive &&
            path->kind == ValueKind::text;
        keys.push_back(Key{std::move(*path), d.ascending, localized});
    }
    return ObjectComparator(model, std::move(keys), tieBreakAscending(descriptors));
}

int ObjectComparator::compare(const ObjectView& a, const ObjectView& b) const {
    const detail::KeyPathReader reader(*m_model);
    for (const auto& key : m_keys) {
        const Scalar x = reader.value(key.path, a);
        const Scalar y = reader.value(key.path, b);
        const bool xNil = std::holds_alternative<std::monostate>(x);
        const bool yNil = std::holds_alternative<std::monostate>(y);
        int order = 0;
        if (xNil || yNil) {
            order = xNil == yNil ? 0 : (xNil ? -1 : 1);
        } else if (key.localized && std::holds_alternative<std::string>(x) &&
                   std::holds_alternative<std::string>(y)) {
            order = detail::collateLocalized(std::get<std::string>(x), std::get<std::string>(y));
        } else {
            order = detail::compareScalars(x, y, 0).value_or(0);
        }
        if (order != 0)
            return key.ascending ? order : -order;
    }
    const auto ka = a.objectID().key, kb = b.objectID().key;
    const int order = ka < kb ? -1 : (kb < ka ? 1 : 0);
    return m_tieBreakAscending ? order : -order;
}

} // namespace tasket::objectstore
