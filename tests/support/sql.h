// A store file read or changed behind the programs' backs, with a SQLite
// connection of the test's own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tasket::testing {

/// Runs `sql` (one statement or several) on `file` and returns column
/// `column` of every row they give, as text; throws std::runtime_error with
/// SQLite's message when one fails.
std::vector<std::string> sqlRows(const std::filesystem::path& file, const std::string& sql,
                                 int column = 0);

/// The first row's first column as a number; -1 when there is no row.
std::int64_t scalar(const std::filesystem::path& file, const std::string& sql);

} // namespace tasket::testing
