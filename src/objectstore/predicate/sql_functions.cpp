#include "objectstore/predicate/sql_functions.h"

#include "objectstore/predicate/detail/text.h"

#include <sqlite3.h>

#include <array>
#include <string_view>

namespace tasket::objectstore {

namespace {

using namespace detail;

std::string_view textOf(sqlite3_value* v) {
    const auto* data = reinterpret_cast<const char*>(sqlite3_value_text(v));
    return data ? std::string_view(data, static_cast<std::size_t>(sqlite3_value_bytes(v)))
                : std::string_view();
}

std::uint8_t optionsOf(sqlite3_value* v) {
    return static_cast<std::uint8_t>(sqlite3_value_int(v) & 3);
}

void fold(sqlite3_context* context, int, sqlite3_value** args) {
    if (sqlite3_value_type(args[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const std::string_view text = textOf(args[0]);
    const std::uint8_t options = optionsOf(args[1]);
    // The common case, ASCII of an identifier's or a title's length, folds
    // on the stack: a query folds every row it reads.
    std::array<char, 128> buffer;
    if (text.size() <= buffer.size() && foldAscii(text, options, buffer.data())) {
        sqlite3_result_text64(context, buffer.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        return;
    }
    const std::string folded = foldText(text, options);
    sqlite3_result_text64(context, folded.data(), folded.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

template <bool (*Match)(std::string_view, std::string_view, std::uint8_t)>
void match(sqlite3_context* context, int, sqlite3_value** args) {
    if (sqlite3_value_type(args[0]) == SQLITE_NULL || sqlite3_value_type(args[1]) == SQLITE_NULL) {
        sqlite3_result_int(context, 0);
        return;
    }
    sqlite3_result_int(context,
                       Match(textOf(args[0]), textOf(args[1]), optionsOf(args[2])) ? 1 : 0);
}

int collate(void*, int aLength, const void* a, int bLength, const void* b) {
    return collateLocalized(
        std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(aLength)),
        std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(bLength)));
}

} // namespace

void registerSqlFunctions(sqlite3* db) {
    constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    sqlite3_create_function_v2(db, "tk_fold", 2, kFlags, nullptr, fold, nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(db, "tk_contains", 3, kFlags, nullptr, match<textContains>, nullptr,
                               nullptr, nullptr);
    sqlite3_create_function_v2(db, "tk_beginswith", 3, kFlags, nullptr, match<textBeginsWith>,
                               nullptr, nullptr, nullptr);
    sqlite3_create_function_v2(db, "tk_endswith", 3, kFlags, nullptr, match<textEndsWith>, nullptr,
                               nullptr, nullptr);
    sqlite3_create_function_v2(db, "tk_like", 3, kFlags, nullptr, match<textLike>, nullptr, nullptr,
                               nullptr);
    sqlite3_create_collation_v2(db, "TK_LOCALIZED", SQLITE_UTF8, nullptr, collate, nullptr);
}

} // namespace tasket::objectstore
