// Feeds arbitrary bytes to the predicate parser, with arguments made up to
// match the format specifiers in the text. Whatever parses must print as
// text that parses back to the same text, and must either bind to the
// predicate tests' model and compile to SQL that SQLite accepts against the
// engine's own tables, or fail to bind cleanly.
#include "objectstore/model/model.h"
#include "objectstore/persistent_store.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sql_compiler.h"
#include "objectstore/predicate/sql_functions.h"
#include "support/predicate_model.h"
#include "support/temp_dir.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace tasket::objectstore;

namespace {

const Model& fuzzModel() {
    return *tasket::testing::predicateTestModel();
}

// The model's tables as the engine makes them, in a store file that lasts
// as long as the process.
sqlite3* fuzzDatabase() {
    static const tasket::testing::TempDir dir;
    static sqlite3* db = [] {
        const auto file = dir / "fuzz.sqlite";
        sqlite3* handle = nullptr;
        if (!PersistentStore::open(file, tasket::testing::predicateTestModel()) ||
            sqlite3_open(file.c_str(), &handle) != SQLITE_OK)
            std::abort();
        registerSqlFunctions(handle);
        return handle;
    }();
    return db;
}

// One argument per format specifier, of a kind that fits it; %@ cycles
// through every kind of constant and a list.
std::vector<PredicateArgument> argumentsFor(std::string_view text) {
    std::vector<PredicateArgument> args;
    int rotation = 0;
    for (std::size_t i = 0; i + 1 < text.size() && args.size() < 16; ++i) {
        if (text[i] != '%')
            continue;
        std::size_t j = i + 1;
        while (j < text.size() &&
               std::string_view("lhqzjt").find(text[j]) != std::string_view::npos)
            ++j;
        if (j >= text.size())
            break;
        switch (text[j]) {
        case 'K': args.emplace_back(rotation++ % 2 ? "folder.name" : "title"); break;
        case 'd':
        case 'i':
        case 'u':
            args.emplace_back(rotation++ % 2 ? PredicateArgument(true) : PredicateArgument(7));
            break;
        case 'f':
        case 'g':
        case 'e': args.emplace_back(2.5); break;
        case '@':
            switch (rotation++ % 8) {
            case 0: args.emplace_back("Émile"); break;
            case 1: args.emplace_back(3); break;
            case 2: args.emplace_back(Date{86400}); break;
            case 3: args.emplace_back(std::vector<std::string>{"a", "B"}); break;
            case 4: args.emplace_back(ObjectID{1, 2}); break;
            case 5: args.emplace_back(nullptr); break;
            case 6:
                args.emplace_back(Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F").value());
                break;
            default: args.emplace_back(ScalarList{Scalar(1.5), Scalar()}); break;
            }
            break;
        default: break;
        }
    }
    return args;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto parsed = Predicate::parse(text, argumentsFor(text));
    if (!parsed)
        return 0;
    const std::string printed = parsed->toString();
    auto again = Predicate::parse(printed);
    if (!again || again->toString() != printed) {
        std::fprintf(stderr, "round trip failed:\n  %s\n  %s\n", printed.c_str(),
                     again ? again->toString().c_str() : again.error().message.c_str());
        std::abort();
    }
    for (std::uint32_t entity = 0; entity < fuzzModel().entities().size(); ++entity) {
        auto sql = compileToSql(*parsed, fuzzModel(), entity);
        if (!sql)
            continue;
        const std::string query = "SELECT t0.pk FROM \"" + fuzzModel().entity(entity).name +
                                  "\" AS t0 " + sql->joins + " WHERE " + sql->where;
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(fuzzDatabase(), query.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
            std::fprintf(stderr, "invalid SQL for %s:\n  %s\n  %s\n", printed.c_str(),
                         query.c_str(), sqlite3_errmsg(fuzzDatabase()));
            std::abort();
        }
        if (sqlite3_bind_parameter_count(stmt) != static_cast<int>(sql->bindings.size()))
            std::abort();
        sqlite3_finalize(stmt);
    }
    return 0;
}
