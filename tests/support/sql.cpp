#include "support/sql.h"

#include <sqlite3.h>

#include <stdexcept>

namespace tasket::testing {

std::vector<std::string> sqlRows(const std::filesystem::path& file, const std::string& sql,
                                 int column) {
    sqlite3* db = nullptr;
    std::string error = sqlite3_open(file.c_str(), &db) == SQLITE_OK ? "" : sqlite3_errmsg(db);
    std::vector<std::string> rows;
    for (const char* rest = sql.c_str(); error.empty() && *rest;) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, rest, -1, &statement, &rest) != SQLITE_OK)
            error = sqlite3_errmsg(db);
        int rc = SQLITE_DONE;
        while (statement && (rc = sqlite3_step(statement)) == SQLITE_ROW) {
            const unsigned char* text = sqlite3_column_text(statement, column);
            rows.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
        }
        if (statement && rc != SQLITE_DONE)
            error = sqlite3_errmsg(db);
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    if (!error.empty())
        throw std::runtime_error(error + " (" + sql + ")");
    return rows;
}

std::int64_t scalar(const std::filesystem::path& file, const std::string& sql) {
    const auto rows = sqlRows(file, sql);
    return rows.empty() ? -1 : std::stoll(rows.front());
}

} // namespace tasket::testing
