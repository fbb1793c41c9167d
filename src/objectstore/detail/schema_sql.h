// The SQL text of the schema a model makes (tables, columns, join tables,
// indexes, the engine's own tables), its fingerprint, and the check of an
// existing file's header before SQLite may touch it. Internal to the engine.
#pragma once

#include "objectstore/model/model.h"
#include "platform/error.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::objectstore::detail {

/// The engine's own tables: metadata, key counters and persistent history.
extern const std::string_view kEngineTables;

/// The statements that bring `e`'s table, its join tables and its indexes
/// up to the model, given the table's `existing` columns (none: a new table).
[[nodiscard]] std::vector<std::string> entityStatements(const EntityDescription& e,
                                                        const std::vector<std::string>& existing);

/// A fingerprint of the schema `model` makes, kept in the store: an opened
/// store carrying the program's fingerprint needs no schema work at all.
[[nodiscard]] std::string schemaFingerprint(const Model& model);

/// Checks an existing file's header without writing anything, so a damaged
/// or foreign file fails (Errc::storeCorrupt) before SQLite could touch it.
[[nodiscard]] platform::Result<void> checkExistingFile(const std::filesystem::path& path);

/// The store identifier recorded in the file itself, read without its
/// write-ahead log (none when the file does not hold one yet).
[[nodiscard]] std::optional<std::string> identifierInFileAlone(const std::filesystem::path& path);

} // namespace tasket::objectstore::detail
