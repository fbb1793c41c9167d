#include "bench_store.h"

#include "objectstore/persistent_store.h"
#include "platform/uuid.h"
#include "store/local_data_manager.h"
#include "store/tk_data_model.h"
#include "support/temp_dir.h"

#include <fmt/core.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace tasket::bench {

namespace fs = std::filesystem;
using objectstore::RelationshipStorage;

namespace {

// Bumped whenever what the generator writes changes.
constexpr int kGeneratorVersion = 1;

class Database {
  public:
    explicit Database(const fs::path& file) {
        if (sqlite3_open(file.c_str(), &m_db) != SQLITE_OK)
            throw std::runtime_error(fmt::format("cannot open {}", file.string()));
    }
    ~Database() { sqlite3_close(m_db); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void exec(const std::string& sql) {
        char* message = nullptr;
        if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
            std::string text = message ? message : "unknown error";
            sqlite3_free(message);
            throw std::runtime_error(fmt::format("{}: {}", sql, text));
        }
    }
    sqlite3* get() const { return m_db; }

  private:
    sqlite3* m_db = nullptr;
};

// One prepared INSERT; bind the columns in order, then step().
class Insert {
  public:
    Insert(Database& db, const std::string& table, const std::vector<std::string>& columns)
        : m_db(db) {
        std::string names, marks;
        for (const auto& c : columns) {
            names += (names.empty() ? "\"" : ", \"") + c + "\"";
            marks += marks.empty() ? "?" : ", ?";
        }
        const std::string sql =
            fmt::format("INSERT INTO \"{}\"({}) VALUES({})", table, names, marks);
        if (sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &m_stmt, nullptr) != SQLITE_OK)
            throw std::runtime_error(fmt::format("{}: {}", sql, sqlite3_errmsg(db.get())));
    }
    ~Insert() { sqlite3_finalize(m_stmt); }
    Insert(const Insert&) = delete;
    Insert& operator=(const Insert&) = delete;

    Insert& text(const std::string& v) {
        sqlite3_bind_text(m_stmt, ++m_at, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Insert& real(double v) {
        sqlite3_bind_double(m_stmt, ++m_at, v);
        return *this;
    }
    Insert& integer(std::int64_t v) {
        sqlite3_bind_int64(m_stmt, ++m_at, v);
        return *this;
    }
    Insert& null() {
        sqlite3_bind_null(m_stmt, ++m_at);
        return *this;
    }
    Insert& blob(const std::vector<std::uint8_t>& v) {
        sqlite3_bind_blob(m_stmt, ++m_at, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    /// A new identifier of a UUID attribute, stored as its text like the engine does.
    Insert& uuid() { return text(platform::Uuid::generate().toString()); }
    /// Inserts the bound row; returns its pk.
    std::int64_t step() {
        if (sqlite3_step(m_stmt) != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(m_db.get()));
        sqlite3_reset(m_stmt);
        sqlite3_clear_bindings(m_stmt);
        m_at = 0;
        return sqlite3_last_insert_rowid(m_db.get());
    }

  private:
    Database& m_db;
    sqlite3_stmt* m_stmt = nullptr;
    int m_at = 0;
};

// The join table of a many-to-many relationship and whether `entity` is its
// src side, as the model lays it out.
std::pair<std::string, bool> joinTable(std::string_view entity, std::string_view relationship) {
    const auto& model = *store::tkDataModel();
    const auto* e = model.entity(entity);
    for (std::size_t i = 0; i < e->relationships.size(); ++i)
        if (e->relationships[i].name == relationship)
            return {e->joinTables[i], e->storage[i] == RelationshipStorage::JoinTable};
    throw std::logic_error(fmt::format("{} has no relationship {}", entity, relationship));
}

std::string schemaText(const fs::path& file) {
    Database db(file);
    std::string out;
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db.get(), "SELECT type, name, sql FROM sqlite_master ORDER BY name", -1,
                       &stmt, nullptr);
    while (sqlite3_step(stmt) == SQLITE_ROW)
        for (int c = 0; c < 3; ++c) {
            const auto* text = sqlite3_column_text(stmt, c);
            out += text ? reinterpret_cast<const char*>(text) : "";
            out += c == 2 ? '\n' : '|';
        }
    sqlite3_finalize(stmt);
    return out;
}

std::uint64_t fnv1a(std::string_view text) {
    std::uint64_t h = 1469598103934665603ULL;
    for (unsigned char c : text) {
        h ^= c;
        h *= 1099511628211ULL;
    }
    return h;
}

// The schema the engine creates now, hashed with the generator and the sizes.
std::uint64_t schemaHash(const BenchStoreSize& size) {
    const testing::TempDir scratch;
    {
        auto opened =
            objectstore::PersistentStore::open(scratch / "schema.sqlite", store::tkDataModel(),
                                               objectstore::StoreOptions{true, false});
        if (!opened)
            throw std::runtime_error(opened.error().message);
    }
    std::string text = schemaText(scratch / "schema.sqlite");
    text += fmt::format("generator {} sizes {} {} {} {} {} {} {} {} {} {} {} {}", kGeneratorVersion,
                        size.lists, size.tasks, size.subtasks, size.tags, size.priorities,
                        size.statuses, size.attributes, size.values, size.sections,
                        size.attachments, size.folders, size.smartLists);
    return fnv1a(text);
}

void generate(const fs::path& folder, const BenchStoreSize& size) {
    // The engine lays out the schema; the rows go in with plain SQL.
    store::LocalDataManager::make(folder)->container();
    Database db(folder / std::string(store::kStoreFileName));
    db.exec("PRAGMA synchronous=OFF; BEGIN");

    std::mt19937_64 random(20240611);
    auto pick = [&](int n) {
        return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(n));
    };
    // Creation instants spread over five years, unrelated to insertion order.
    auto created = [&] { return 7.0e8 - static_cast<double>(random() % 157'680'000); };
    auto id = [] { return platform::Uuid::generate().toString(); };
    const std::string note(80, 'n');

    auto lists = [&](const char* entity, const char* idColumn, const char* word, int count) {
        Insert row(db, entity, {idColumn, "title", "whenCreated", "sortIndex"});
        std::vector<std::int64_t> keys;
        for (int i = 0; i < count; ++i)
            keys.push_back(row.text(id())
                               .text(fmt::format("{} {}", word, i))
                               .real(created())
                               .integer(i)
                               .step());
        return keys;
    };
    const auto categories = lists("TK_Category", "categoryID", "List", size.lists);
    const auto tags = lists("TK_Tag", "tagID", "Tag", size.tags);
    const auto priorities = lists("TK_Priority", "priorityID", "Priority", size.priorities);
    const auto statuses = lists("TK_Status", "statusID", "Status", size.statuses);

    std::vector<std::int64_t> attributes;
    {
        Insert row(db, "TK_Attribute", {"identifier", "title", "whenCreated", "sortIndex"});
        for (int i = 0; i < size.attributes; ++i)
            attributes.push_back(
                row.uuid().text(fmt::format("Attribute {}", i)).real(created()).integer(i).step());
    }
    std::vector<std::int64_t> values;
    {
        Insert row(db, "TK_AttributeValue",
                   {"identifier", "title", "whenCreated", "sortIndex", "attribute"});
        for (int i = 0; i < size.values; ++i)
            values.push_back(row.uuid()
                                 .text(fmt::format("Value {}", i))
                                 .real(created())
                                 .integer(i)
                                 .integer(attributes[static_cast<std::size_t>(i % size.attributes)])
                                 .step());
    }
    {
        Insert row(db, "TK_Folder", {"identifier", "title", "creationDate", "sortIndex"});
        for (int i = 0; i < size.folders; ++i)
            row.text(id()).text(fmt::format("Folder {}", i)).real(created()).integer(i).step();
        Insert smart(db, "TK_SmartCategory", {"identifier", "title", "creationDate", "sortIndex"});
        for (int i = 0; i < size.smartLists; ++i)
            smart.text(id())
                .text(fmt::format("Smart list {}", i))
                .real(created())
                .integer(i)
                .step();
        Insert section(db, "TK_BoardSection",
                       {"identifier", "title", "creationDate", "sortIndex", "category"});
        for (int i = 0; i < size.sections; ++i)
            section.text(id())
                .text(fmt::format("Section {}", i))
                .real(created())
                .integer(i % 2)
                .integer(categories[static_cast<std::size_t>(pick(size.lists))])
                .step();
    }

    std::vector<std::int64_t> tasks;
    {
        Insert row(db, "TK_Task",
                   {"taskID", "title", "note", "whenCreated", "category", "customPriority",
                    "customStatus"});
        const auto [tagTable, taskIsTagSource] = joinTable("TK_Task", "tags");
        const auto [valueTable, taskIsValueSource] = joinTable("TK_Task", "values");
        Insert tagged(db, tagTable, {"src", "dst"});
        Insert valued(db, valueTable, {"src", "dst"});
        auto link = [](Insert& join, bool taskIsSource, std::int64_t task, std::int64_t other) {
            if (taskIsSource)
                join.integer(task).integer(other).step();
            else
                join.integer(other).integer(task).step();
        };
        tasks.reserve(static_cast<std::size_t>(size.tasks));
        for (int i = 0; i < size.tasks; ++i) {
            row.text(id())
                .text(fmt::format("Task number {} to do", i))
                .text(note)
                .real(created())
                .integer(categories[static_cast<std::size_t>(pick(size.lists))]);
            // A third have a priority, a third a status; the rest leave them NULL.
            if (i % 3 == 0)
                row.integer(priorities[static_cast<std::size_t>(pick(size.priorities))]).null();
            else if (i % 3 == 1)
                row.null().integer(statuses[static_cast<std::size_t>(pick(size.statuses))]);
            else
                row.null().null();
            const std::int64_t task = row.step();
            tasks.push_back(task);
            if (i % 4 == 0)
                link(tagged, taskIsTagSource, task,
                     tags[static_cast<std::size_t>(pick(size.tags))]);
            if (i % 10 == 0)
                link(valued, taskIsValueSource, task,
                     values[static_cast<std::size_t>(pick(size.values))]);
        }
    }
    {
        Insert row(db, "TK_Subtask", {"subtaskID", "title", "whenCreated", "sortIndex", "task"});
        for (int i = 0; i < size.subtasks; ++i)
            row.text(id())
                .text(fmt::format("Step {} of the task", i))
                .real(created())
                .integer(i % 3)
                .integer(tasks[static_cast<std::size_t>(pick(size.tasks))])
                .step();
    }
    {
        Insert row(db, "TK_Attachment",
                   {"identifier", "title", "fileExtension", "content", "creationDate", "task"});
        const std::vector<std::uint8_t> content(2048, 0x5a);
        for (int i = 0; i < size.attachments; ++i)
            row.text(id())
                .text(fmt::format("Scan {}", i))
                .text("png")
                .blob(content)
                .real(created())
                .integer(tasks[static_cast<std::size_t>(pick(size.tasks))])
                .step();
    }
    db.exec("COMMIT");
    db.exec("PRAGMA wal_checkpoint(TRUNCATE)");
}

} // namespace

fs::path benchStoreFolder(const BenchStoreSize& size) {
    const fs::path folder = fs::temp_directory_path() /
                            fmt::format("tasket-bench-collections-{:016x}", schemaHash(size));
    const fs::path done = folder / "complete";
    if (fs::exists(done))
        return folder;
    fs::remove_all(folder);
    fs::create_directories(folder);
    generate(folder, size);
    std::ofstream(done) << "generated\n";
    return folder;
}

ScratchCopy::ScratchCopy(const fs::path& folder) {
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().starts_with(store::kStoreFileName))
            fs::copy_file(entry.path(), m_dir / entry.path().filename());
}

} // namespace tasket::bench
