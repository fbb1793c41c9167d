// Persistent history: every save of a store with history tracking records a
// transaction (an increasing token, when, which context and author) and one
// change per object. Readers fetch what came after a token they kept;
// tokens are archived to files in a tagged, versioned form.
#pragma once

#include "objectstore/model/value.h"
#include "platform/error.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tasket::objectstore {

struct HistoryToken {
    std::int64_t value = 0;
    friend auto operator<=>(const HistoryToken&, const HistoryToken&) = default;
};

enum class ChangeType { insert = 0, update = 1, remove = 2 };

struct HistoryChange {
    ObjectID object;
    ChangeType type = ChangeType::update;
    std::vector<std::string> changedProperties; // updates only
};

struct HistoryTransaction {
    HistoryToken token;
    Date timestamp;
    std::string contextName;
    std::string author;
    std::vector<HistoryChange> changes;
};

/// The archived form of a token: a tag, a format version and the value.
std::vector<std::uint8_t> archiveToken(HistoryToken token);
/// Reads an archived token; anything else fails with Errc::parseError.
platform::Result<HistoryToken> unarchiveToken(const std::vector<std::uint8_t>& data);

/// Writes the archive durably (temporary file, fsync, rename).
platform::Result<void> writeTokenFile(const std::filesystem::path& path, HistoryToken token);
/// Reads a token file. A missing file gives nullopt; a file that is not a
/// token fails.
platform::Result<std::optional<HistoryToken>> readTokenFile(const std::filesystem::path& path);

} // namespace tasket::objectstore
