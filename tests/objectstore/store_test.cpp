#include "helpers/engine_fixture.h"
#include "objectstore/persistent_store.h"
#include "support/program_run.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <functional>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::testing::makeTestModel;
using tasket::testing::scalar;
using tasket::testing::TempDir;

namespace {

// Saves `count` items with `title` into the store at `path`.
void saveItems(const std::filesystem::path& path, std::shared_ptr<Model> model, int count,
               const std::string& title) {
    auto store = PersistentStore::open(path, std::move(model));
    ASSERT_TRUE(store) << store.error().message;
    auto ctx = ObjectContext::make(*store, ConcurrencyType::mainQueue);
    for (int i = 0; i < count; ++i)
        ctx->insertNewObject("Item")->setValue("title", title);
    ASSERT_SAVED(ctx);
}

} // namespace

// (A damaged or foreign file, named and left as it is, is the programs'
// test: hostile_inputs_test.)

TEST(PersistentStore, FolderProblemsAreNamed) {
    TempDir dir;
    auto missing = PersistentStore::open(dir / "nope" / "s.sqlite", makeTestModel());
    ASSERT_FALSE(missing);
    EXPECT_NE(missing.error().message.find((dir / "nope").string()), std::string::npos);

    // Root may write anywhere, so the attempt runs in a child without privileges.
    namespace fs = std::filesystem;
    fs::permissions(dir.path(), fs::perms::all);
    fs::create_directory(dir / "ro");
    fs::permissions(dir / "ro", fs::perms::owner_read | fs::perms::owner_exec |
                                    fs::perms::others_read | fs::perms::others_exec);
    const std::string message = tasket::testing::asUnprivilegedUser([&] {
        auto readOnly = PersistentStore::open(dir / "ro" / "s.sqlite", makeTestModel());
        if (readOnly || readOnly.error().code != Errc::permissionDenied)
            return std::string("opened, or refused for another reason");
        return readOnly.error().message;
    });
    EXPECT_NE(message.find((dir / "ro").string()), std::string::npos) << message;
    EXPECT_FALSE(fs::exists(dir / "ro" / "s.sqlite"));
}

// Whatever the umask, the store and its log are the user's alone, and a
// link planted where the store should be is not followed.
TEST(PersistentStore, FilesAreTheUsersAloneAndNoLinkIsFollowed) {
    namespace fs = std::filesystem;
    TempDir dir;
    const mode_t previous = umask(0);
    {
        auto store = PersistentStore::open(dir / "s.sqlite", makeTestModel());
        ASSERT_TRUE(store) << store.error().message;
        auto context = ObjectContext::make(*store, ConcurrencyType::mainQueue);
        context->insertNewObject("Label");
        ASSERT_SAVED(context);
        for (const char* suffix : {"", "-wal", "-shm"})
            EXPECT_EQ(fs::status(dir.path() / (std::string("s.sqlite") + suffix)).permissions(),
                      fs::perms::owner_read | fs::perms::owner_write)
                << suffix;
    }
    umask(previous);

    fs::create_symlink(dir / "elsewhere.sqlite", dir / "planted.sqlite");
    EXPECT_FALSE(PersistentStore::open(dir / "planted.sqlite", makeTestModel()));
    EXPECT_FALSE(fs::exists(dir / "elsewhere.sqlite"));
}

// Version 1 is created (write-ahead log, user_version, an identifier),
// version 2 adds an attribute with a default and an entity in place, and a
// program that knows only version 1 again leaves the file alone.
TEST(PersistentStore, MigratesAdditivelyAndRefusesANewerSchema) {
    TempDir dir;
    const auto file = dir / "s.sqlite";
    saveItems(file, makeTestModel(1), 1, "kept");
    EXPECT_EQ(scalar(file, "PRAGMA user_version"), 1);
    EXPECT_EQ(scalar(file, "SELECT count(*) FROM pragma_journal_mode WHERE journal_mode='wal'"), 1);
    const auto created = PersistentStore::open(file, makeTestModel(1));
    ASSERT_TRUE(created);
    EXPECT_FALSE((*created)->identifier().empty());

    auto store = PersistentStore::open(file, makeTestModel(2, true));
    ASSERT_TRUE(store) << store.error().message;
    EXPECT_EQ(scalar(file, "PRAGMA user_version"), 2);
    EXPECT_EQ((*store)->identifier(), (*created)->identifier());
    auto ctx = ObjectContext::make(*store, ConcurrencyType::mainQueue);
    auto items = ctx->fetch(FetchRequest("Item"));
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 1u);
    EXPECT_EQ(items->front()->value("title"), Value(std::string("kept")));
    EXPECT_EQ(items->front()->value("priority"), Value(std::int64_t(3)));
    ctx->insertNewObject("Extra")->setValue("value", std::string("new entity"));
    EXPECT_SAVED(ctx);

    const std::string before = tasket::testing::readFile(file);
    auto older = PersistentStore::open(file, makeTestModel(1));
    ASSERT_FALSE(older);
    EXPECT_EQ(older.error().code, Errc::schemaTooNew);
    EXPECT_EQ(tasket::testing::readFile(file), before);
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

// Names are quoted in every statement the engine writes, a quote inside one
// included: the store is made, written, read back and reopened.
TEST(PersistentStore, NamesWithQuotesAndSpaces) {
    TempDir dir;
    auto model = std::make_shared<Model>("Odd", 1);
    auto& entity = model->addEntity("An \"odd\" entity");
    entity.attributes.push_back({"the \"title\"", AttributeType::String, true, {}, true});
    entity.sortIndexes = {{{"the \"title\""}}};
    ASSERT_TRUE(model->finalize());
    for (const char* title : {"first", "second"}) {
        auto store = PersistentStore::open(dir / "odd.sqlite", model);
        ASSERT_TRUE(store) << store.error().message;
        auto ctx = ObjectContext::make(*store, ConcurrencyType::mainQueue);
        ctx->insertNewObject("An \"odd\" entity")->setValue("the \"title\"", std::string(title));
        ASSERT_SAVED(ctx);
        FetchRequest request("An \"odd\" entity");
        request.sortDescriptors = {{"the \"title\"", false}};
        auto found = ctx->fetch(request);
        ASSERT_TRUE(found) << found.error().message;
        EXPECT_EQ(found->front()->value("the \"title\""), Value(std::string(title)));
    }
}
