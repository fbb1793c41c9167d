// How an ordered collection changed, in one type for every live result:
// indexes deleted from the old order, inserted into the new one, updated in
// place, and moved. Applying it to the old order gives the new one: remove
// the deleted and moved-from indexes, then insert the inserted and moved-to
// indexes in ascending order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace tasket::objectstore {

struct CollectionChange {
    std::vector<std::size_t> deleted;  // old indexes, ascending
    std::vector<std::size_t> inserted; // new indexes, ascending
    std::vector<std::size_t> updated;  // new indexes of objects that stayed in place
    std::vector<std::pair<std::size_t, std::size_t>> moved; // old index -> new index

    bool empty() const {
        return deleted.empty() && inserted.empty() && updated.empty() && moved.empty();
    }
};

/// Applies `change` to `old`, taking inserted and moved-to elements from
/// `current` (the new order). The result equals `current` when the change
/// describes the step from `old` to `current`.
template <class T>
std::vector<T> applyChange(const std::vector<T>& old, const CollectionChange& change,
                           const std::vector<T>& current) {
    std::vector<bool> gone(old.size(), false);
    for (auto i : change.deleted)
        gone.at(i) = true;
    for (const auto& [from, to] : change.moved)
        gone.at(from) = true;
    std::vector<T> out;
    out.reserve(current.size());
    for (std::size_t i = 0; i < old.size(); ++i)
        if (!gone[i])
            out.push_back(old[i]);
    std::vector<std::size_t> arriving = change.inserted;
    for (const auto& [from, to] : change.moved)
        arriving.push_back(to);
    std::sort(arriving.begin(), arriving.end());
    for (auto at : arriving)
        out.insert(out.begin() + static_cast<std::ptrdiff_t>(std::min(at, out.size())),
                   current.at(at));
    return out;
}

} // namespace tasket::objectstore
