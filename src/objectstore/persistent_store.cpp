// PersistentStore: opening, and watching for other processes' commits. Its
// other concerns live beside it: persistent_store_schema.cpp (schema and
// migration), persistent_store_rows.cpp (reading and writing rows) and
// persistent_store_history.cpp.
#include "objectstore/persistent_store.h"

#include "objectstore/detail/schema_sql.h"
#include "objectstore/detail/sql_functions.h"
#include "objectstore/detail/sqlite.h"
#include "platform/file_watch.h"

#include <fmt/format.h>
#include <unistd.h>

namespace tasket::objectstore {

using detail::Database;
using detail::pragmaInt;
using platform::Errc;
using platform::fail;

PersistentStore::~PersistentStore() {
    m_monitor.reset(); // stop watching before the connection goes
}

Result<std::shared_ptr<PersistentStore>> PersistentStore::open(const std::filesystem::path& path,
                                                               std::shared_ptr<const Model> model,
                                                               StoreOptions options) {
    if (!model || !model->isFinalized())
        return fail(Errc::invalidArgument, "the model must be finalized before a store opens");
    const auto folder =
        path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
    std::error_code ec;
    if (!std::filesystem::is_directory(folder, ec))
        return fail(Errc::notFound, fmt::format("the folder {} does not exist", folder.string()));
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        return fail(
            Errc::permissionDenied,
            fmt::format("the folder {} cannot be written (the store needs it for its journal)",
                        folder.string()));
    const bool exists = std::filesystem::exists(path, ec);
    if (exists) {
        if (!std::filesystem::is_regular_file(path, ec))
            return fail(Errc::invalidArgument,
                        fmt::format("{} is not a regular file", path.string()));
        if (auto ok = detail::checkExistingFile(path); !ok)
            return std::unexpected(ok.error());
    }

    std::shared_ptr<PersistentStore> store(new PersistentStore());
    store->m_path = path;
    store->m_model = std::move(model);
    store->m_options = options;
    auto db = Database::open(path, true);
    if (!db)
        return std::unexpected(db.error());
    store->m_db = std::move(*db);
    if (auto ok = store->prepareSchema(!exists); !ok) {
        store->m_db->leaveFileAsIs();
        return std::unexpected(ok.error());
    }
    detail::registerSqlFunctions(store->m_db->handle());
    if (auto v = pragmaInt(*store->m_db, "data_version"); v)
        store->m_dataVersion = *v;
    if (options.remoteChangeNotifications) {
        // A burst ends after 25 ms without another write to the store files.
        platform::FileWatch::Options watch{
            .file = path,
            .suffixes = {"", "-wal"},
            .events = platform::FileWatch::modified | platform::FileWatch::closedAfterWriting |
                      platform::FileWatch::movedIn | platform::FileWatch::created,
            .quietPeriod = std::chrono::milliseconds(25)};
        auto monitor = platform::FileWatch::start(
            std::move(watch), [raw = store.get()] { raw->checkRemoteChange(); });
        if (!monitor)
            return std::unexpected(monitor.error());
        store->m_monitor = std::move(*monitor);
    }
    return store;
}

// ---------------------------------------------------------------- remote changes

void PersistentStore::checkRemoteChange() {
    std::optional<HistoryToken> token;
    {
        std::lock_guard lock(m_mutex);
        auto v = pragmaInt(*m_db, "data_version");
        if (!v || *v == m_dataVersion)
            return;
        m_dataVersion = *v;
    }
    if (auto t = currentHistoryToken(); t)
        token = *t;
    platform::NotificationCenter::defaultCenter().post(kStoreRemoteChangeNotification, this,
                                                       RemoteChangeInfo{m_path, token});
}

} // namespace tasket::objectstore
