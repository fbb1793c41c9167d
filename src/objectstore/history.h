// Persistent history: every save of a store with history tracking records a
// transaction (an increasing token, when, which context and author) and one
// change per object. Readers fetch what came after a token they kept;
// tokens are archived to files in a tagged, versioned form.
#pragma once

#include "objectstore/change.h"
#include "objectstore/model/value.h"
#include "platform/error.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tasket::objectstore {

/// One save as history keeps it. Its change set is complete as it stands
/// (store, token, context name, author, and the objects with their changed
/// properties), so another context merges it directly:
/// `context->mergeChanges(transaction.changes)`.
/// What history keeps of one deleted object: the values of its entity's
/// preservedOnDeletion attributes as they were just before the deletion.
struct Tombstone {
    ObjectID id;
    std::vector<std::pair<std::string, Value>> values;
    /// The kept value of the named attribute; nullptr when it was not kept.
    [[nodiscard]] const Value* value(std::string_view name) const {
        const auto it = std::ranges::find(values, name, &std::pair<std::string, Value>::first);
        return it == values.end() ? nullptr : &it->second;
    }
    friend bool operator==(const Tombstone&, const Tombstone&) = default;
};

struct HistoryTransaction {
    ChangeSet changes;
    Date timestamp;
    /// One per deleted object whose entity preserves attributes.
    std::vector<Tombstone> tombstones{};
};

/// The archived form of a token: a tag, a format version and the value.
[[nodiscard]] std::vector<std::uint8_t> archiveToken(HistoryToken token);
/// Reads an archived token; anything else fails with Errc::parseError.
[[nodiscard]] platform::Result<HistoryToken> unarchiveToken(const std::vector<std::uint8_t>& data);

/// Writes the archive durably (temporary file, fsync, rename).
[[nodiscard]] platform::Result<void> writeTokenFile(const std::filesystem::path& path,
                                                    HistoryToken token);
/// Reads a token file. A missing file gives nullopt; a file that is not a
/// token fails.
[[nodiscard]] platform::Result<std::optional<HistoryToken>>
readTokenFile(const std::filesystem::path& path);

} // namespace tasket::objectstore
