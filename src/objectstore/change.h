// The engine's one vocabulary for change. A ChangeSet says which objects
// were inserted, updated (with the properties that changed) and deleted,
// and, where a save or a history transaction carries them, where the change
// came from; it is the did-save payload, the input of a merge, the
// objects-did-change payload and the content of a history transaction. A
// CollectionChange says the same of an ordered result, by index. Every
// consumer of change (contexts, fetched-results controllers, history
// readers) speaks these types.
#pragma once

#include "objectstore/model/value.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tasket::objectstore {

class PersistentStore;

/// What happened to one object or one member of an ordered collection.
/// The values are stored in history; move happens only in collections.
enum class ChangeKind : std::uint8_t { insert = 0, update = 1, remove = 2, move = 3 };

/// The number of a history transaction; later transactions have larger ones.
struct HistoryToken {
    std::int64_t value = 0;
    friend auto operator<=>(const HistoryToken&, const HistoryToken&) = default;
};

struct UpdatedObject {
    ObjectID id;
    /// Names of the changed properties; empty when not known (a refresh, a
    /// row merged from the store), which a reader takes as "anything".
    std::vector<std::string> changedProperties;
    friend bool operator==(const UpdatedObject&, const UpdatedObject&) = default;
};

struct ChangeSet {
    std::vector<ObjectID> inserted;
    std::vector<UpdatedObject> updated;
    std::vector<ObjectID> deleted;
    /// Identities a save made permanent (temporary -> permanent); only on
    /// the objects-did-change that follows a save.
    std::vector<std::pair<ObjectID, ObjectID>> permanentIDs;

    // Where the change was saved: set on did-save and history transactions.
    const PersistentStore* store = nullptr;
    std::optional<HistoryToken> token; // with history tracking
    std::string contextName;
    std::string author;

    [[nodiscard]] bool empty() const {
        return inserted.empty() && updated.empty() && deleted.empty() && permanentIDs.empty();
    }
};

/// How an ordered collection changed: indexes deleted from the old order,
/// inserted into the new one, updated in place, and moved. Applying it to
/// the old order gives the new one: remove the deleted and moved-from
/// indexes, then insert the inserted and moved-to indexes in ascending order.
struct CollectionChange {
    std::vector<std::size_t> deleted;  // old indexes, ascending
    std::vector<std::size_t> inserted; // new indexes, ascending
    std::vector<std::size_t> updated;  // new indexes of objects that stayed in place
    std::vector<std::pair<std::size_t, std::size_t>> moved; // old index -> new index

    [[nodiscard]] bool empty() const {
        return deleted.empty() && inserted.empty() && updated.empty() && moved.empty();
    }
};

/// Applies `change` to `old`, taking inserted and moved-to elements from
/// `current` (the new order). The result equals `current` when the change
/// describes the step from `old` to `current`.
template <class T>
[[nodiscard]] std::vector<T> applyChange(const std::vector<T>& old, const CollectionChange& change,
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
