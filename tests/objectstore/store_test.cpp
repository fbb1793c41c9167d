#include "objectstore/object_context.h"
#include "objectstore/persistent_store.h"
#include "support/saved.h"
#include "support/temp_dir.h"
#include "support/test_model.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::testing::makeTestModel;
using tasket::testing::TempDir;

namespace {

std::string readAll(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeAll(const std::filesystem::path& p, const std::string& bytes) {
    std::ofstream(p, std::ios::binary) << bytes;
}

std::int64_t scalar(const std::filesystem::path& file, const char* sql) {
    sqlite3* db = nullptr;
    sqlite3_open(file.c_str(), &db);
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &s, nullptr);
    std::int64_t v = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : -1;
    sqlite3_finalize(s);
    sqlite3_close(db);
    return v;
}

} // namespace

TEST(PersistentStore, CreatesSchemaInWalModeWithUserVersion) {
    TempDir dir;
    auto store = PersistentStore::open(dir / "s.sqlite", makeTestModel(3));
    ASSERT_TRUE(store) << store.error().message;
    EXPECT_EQ(scalar(dir / "s.sqlite", "PRAGMA user_version"), 3);
    EXPECT_EQ(scalar(dir / "s.sqlite", "SELECT count(*) FROM sqlite_master WHERE name IN "
                                       "('List','Item','Label','Person','Note','_J_Item_labels')"),
              6);
    sqlite3* db = nullptr;
    sqlite3_open((dir / "s.sqlite").c_str(), &db);
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA journal_mode", -1, &s, nullptr);
    ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)), "wal");
    sqlite3_finalize(s);
    sqlite3_close(db);
    EXPECT_FALSE((*store)->identifier().empty());
}

TEST(PersistentStore, DamagedFilesFailWithSqliteMessageAndStayUntouched) {
    struct Case {
        const char* name;
        std::function<std::string(const std::string& good)> make;
        const char* message;
    };
    TempDir dir;
    {
        auto store = PersistentStore::open(dir / "good.sqlite", makeTestModel());
        ASSERT_TRUE(store);
        auto ctx = ObjectContext::make(*store, ConcurrencyType::privateQueue);
        ctx->performAndWait([&] {
            for (int i = 0; i < 200; ++i)
                ctx->insertNewObject("Item")->setValue("title", std::string(100, 'x'));
            ASSERT_SAVED(ctx);
        });
    }
    sqlite3* db = nullptr; // fold the journal in so the file alone is the database
    sqlite3_open((dir / "good.sqlite").c_str(), &db);
    sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE); PRAGMA journal_mode=DELETE", nullptr,
                 nullptr, nullptr);
    sqlite3_close(db);
    const std::string good = readAll(dir / "good.sqlite");
    ASSERT_GT(good.size(), 8192u);

    const std::vector<Case> cases = {
        {"text",
         [](const std::string&) { return std::string("this is a plain text file, not a store\n"); },
         "file is not a database"},
        {"short", [](const std::string& g) { return g.substr(0, 60); }, "file is not a database"},
        {"truncated", [](const std::string& g) { return g.substr(0, g.size() / 2); }, "malformed"},
        {"midpage", [](const std::string& g) { return g.substr(0, 4096 + 100); }, "malformed"},
        {"garbage header",
         [](const std::string& g) { return std::string(100, '\xff') + g.substr(100); },
         "file is not a database"},
    };
    for (const auto& c : cases) {
        const auto path = dir / (std::string(c.name) + ".sqlite");
        const std::string bytes = c.make(good);
        writeAll(path, bytes);
        auto store = PersistentStore::open(path, makeTestModel());
        ASSERT_FALSE(store) << c.name;
        EXPECT_EQ(store.error().code, Errc::storeCorrupt) << c.name;
        EXPECT_NE(store.error().message.find(c.message), std::string::npos)
            << c.name << ": " << store.error().message;
        EXPECT_EQ(readAll(path), bytes) << c.name;
        EXPECT_FALSE(std::filesystem::exists(path.string() + "-wal")) << c.name;
    }
}

TEST(PersistentStore, FolderProblemsAreNamed) {
    TempDir dir;
    auto missing = PersistentStore::open(dir / "nope" / "s.sqlite", makeTestModel());
    ASSERT_FALSE(missing);
    EXPECT_NE(missing.error().message.find((dir / "nope").string()), std::string::npos);

    // Root may write anywhere, so the attempt runs in a child without privileges.
    std::filesystem::permissions(dir.path(), std::filesystem::perms::all);
    std::filesystem::create_directory(dir / "ro");
    std::filesystem::permissions(
        dir / "ro", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                        std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        close(out[0]);
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(3);
        auto readOnly = PersistentStore::open(dir / "ro" / "s.sqlite", makeTestModel());
        if (readOnly)
            _exit(1);
        const std::string m = readOnly.error().message;
        [[maybe_unused]] auto n = write(out[1], m.data(), m.size());
        _exit(readOnly.error().code == Errc::permissionDenied ? 0 : 2);
    }
    close(out[1]);
    std::string message;
    char buffer[512];
    ssize_t n;
    while ((n = read(out[0], buffer, sizeof buffer)) > 0)
        message.append(buffer, static_cast<std::size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << message;
    EXPECT_NE(message.find((dir / "ro").string()), std::string::npos) << message;
    EXPECT_FALSE(std::filesystem::exists(dir / "ro" / "s.sqlite"));
}

TEST(PersistentStore, NewerSchemaIsRefusedUnchanged) {
    TempDir dir;
    ASSERT_TRUE(PersistentStore::open(dir / "s.sqlite", makeTestModel(5)));
    const std::string before = readAll(dir / "s.sqlite");
    auto older = PersistentStore::open(dir / "s.sqlite", makeTestModel(4));
    ASSERT_FALSE(older);
    EXPECT_EQ(older.error().code, Errc::schemaTooNew);
    EXPECT_EQ(readAll(dir / "s.sqlite"), before);
}

TEST(PersistentStore, AdditiveMigrationKeepsRowsAndFillsDefaults) {
    TempDir dir;
    ObjectID saved;
    {
        auto store = PersistentStore::open(dir / "s.sqlite", makeTestModel(1));
        ASSERT_TRUE(store);
        auto ctx = ObjectContext::make(*store, ConcurrencyType::privateQueue);
        ctx->performAndWait([&] {
            auto item = ctx->insertNewObject("Item");
            item->setValue("title", std::string("kept"));
            ASSERT_SAVED(ctx);
            saved = item->objectID();
        });
    }
    auto store = PersistentStore::open(dir / "s.sqlite", makeTestModel(2, true));
    ASSERT_TRUE(store) << store.error().message;
    EXPECT_EQ(scalar(dir / "s.sqlite", "PRAGMA user_version"), 2);
    auto ctx = ObjectContext::make(*store, ConcurrencyType::privateQueue);
    ctx->performAndWait([&] {
        auto item = ctx->existingObject(saved);
        ASSERT_TRUE(item);
        EXPECT_EQ(std::get<std::string>((*item)->value("title")), "kept");
        EXPECT_EQ(std::get<std::int64_t>((*item)->value("priority")), 3);
        ctx->insertNewObject("Extra")->setValue("value", std::string("new entity"));
        EXPECT_SAVED(ctx);
    });
}

// A store brought up to the model once opens without writing, so even while
// another connection holds the write lock; an index the model gains (at the
// same version) is built at the next open.
TEST(PersistentStore, SchemaWorkHappensOnlyWhenTheModelChanged) {
    TempDir dir;
    const auto file = dir / "s.sqlite";
    ASSERT_TRUE(PersistentStore::open(file, makeTestModel(1)));
    {
        sqlite3* writer = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &writer), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(writer, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        auto reopened = PersistentStore::open(file, makeTestModel(1));
        EXPECT_TRUE(reopened) << reopened.error().message;
        sqlite3_close(writer);
    }
    const auto created = scalar(file, "PRAGMA schema_version");
    auto indexed = makeTestModel(1);
    const_cast<EntityDescription&>(*indexed->entity("Item")).sortIndexes = {{{"title"}}};
    ASSERT_TRUE(PersistentStore::open(file, indexed));
    EXPECT_EQ(scalar(file, "SELECT count(*) FROM sqlite_master WHERE name = '_s_Item_title'"), 1);
    EXPECT_GT(scalar(file, "PRAGMA schema_version"), created);
}
