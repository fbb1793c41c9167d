// History processing over a store another process (seed_store) writes: bad
// and unwritable token files, purging up to the slowest live reader, a
// processor released mid-pass. The form's test shows live lists following.
#include "cloud/persistent_history_processor.h"
#include "objectstore/fetched_results_controller.h"
#include "platform/main_queue.h"
#include "store/records.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <future>
#include <thread>

using namespace tasket::cloud;
using namespace std::chrono_literals;
using tasket::objectstore::HistoryToken;
using tasket::platform::MainQueue;
namespace fs = std::filesystem;

namespace {

struct Store {
    tasket::testing::TempDir dir;
    std::shared_ptr<tasket::store::LocalDataManager> data =
        tasket::store::LocalDataManager::make(dir.path());

    void otherProcessAdds(std::initializer_list<const char*> titles) { // a transaction each
        for (const char* title : titles)
            tasket::testing::seedStore(dir.path(), {"--list", title}, dir.path());
    }
    std::vector<tasket::objectstore::HistoryTransaction> history() {
        return *data->container()->store()->historyAfter(std::nullopt);
    }
    /// `program`'s token file holding the token of `transaction`, else garbage.
    fs::path writeToken(const std::string& program, std::optional<std::size_t> transaction) {
        const auto file = tokenFilePath(dir.path(), program);
        fs::create_directories(file.parent_path());
        const auto bytes = archiveToken(*history().at(transaction.value_or(0)).changes.token);
        std::ofstream(file) << (transaction ? std::string(bytes.begin(), bytes.end()) : "garbage");
        return file;
    }
    std::shared_ptr<PersistentHistoryProcessor> reader(const std::string& program) {
        return PersistentHistoryProcessor::make(*data, {.program = program});
    }
};

// Writes beyond `bytes` fail with EFBIG while it lives, as on a full disk.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &m_old);
        m_signal = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, m_old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_signal);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_old{};
    void (*m_signal)(int) = nullptr;
};

} // namespace

TEST(HistoryProcessing, BadTokenFilesReadFromTheBeginningAndAFailedWriteMergesAgainOnce) {
    Store store;
    tasket::objectstore::FetchedResultsController lists(store.data->viewContext(),
                                                        tasket::store::TK_Category::fetchRequest());
    ASSERT_TRUE(lists.performFetch());
    store.otherProcessAdds({"A", "B"});
    store.writeToken("keeper", std::nullopt); // a live reader without a token: nothing is purged
    for (const auto& [program, transaction, merged] :
         {std::tuple{"garbage", std::optional<std::size_t>(), 2u}, {"at-first", 0u, 1u}}) {
        store.writeToken(program, transaction);
        EXPECT_EQ(store.reader(program)->process()->transactions, merged) << program;
    }
    auto reader = store.reader("blocked");
    ASSERT_TRUE(reader->process());
    const auto kept = readReaderToken(reader->tokenFile());
    EXPECT_EQ(fs::status(reader->tokenFile()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    store.otherProcessAdds({"C"});
    {
        const FileSizeLimit full(0); // the file cannot be replaced
        EXPECT_FALSE(reader->process());
    }
    EXPECT_EQ(readReaderToken(reader->tokenFile()), kept);
    EXPECT_EQ(std::distance(fs::directory_iterator(reader->tokenFile().parent_path()), {}), 4)
        << "a temporary file was left behind";
    EXPECT_EQ(reader->process()->transactions, 1u);
    MainQueue::shared().pump();
    EXPECT_EQ(lists.objectIDs().size(), 3u); // each merged more than once, listed once
}

TEST(HistoryProcessing, PurgingKeepsWhatTheSlowestLiveReaderHasNotRead) {
    Store store;
    store.otherProcessAdds({"A", "B", "C"});
    // The slow reader's file: garbage (reads from the beginning), at the
    // first transaction, then untouched for longer than the limit (gone).
    for (const auto& [slowReaderRead, gone, kept] :
         {std::tuple{std::optional<std::size_t>(), false, 3u}, {0u, false, 2u}, {0u, true, 0u}}) {
        const auto slow = store.writeToken("slow", slowReaderRead);
        if (gone)
            fs::last_write_time(slow,
                                fs::file_time_type::clock::now() - kDefaultStaleReaderAge - 1h);
        ASSERT_TRUE(store.reader("fast")->process());
        EXPECT_EQ(store.history().size(), kept) << gone;
    }
}

TEST(HistoryProcessing, ReleasingTheProcessorDuringAPassEndsItQuietly) {
    Store store;
    store.otherProcessAdds({"A", "B", "C"});
    auto reader = store.reader("released");
    std::promise<void> go; // holds the history queue until the processor is released
    reader->historyContext()->perform([wait = go.get_future().share()] { wait.wait(); });
    auto pending = reader->start();
    reader.reset();
    go.set_value();
    EXPECT_TRUE(pending.get()->ownerReleased);
    EXPECT_FALSE(fs::exists(tokenFilePath(store.dir.path(), "released")));
    for (const auto delay : {0us, 100us, 1000us, 10000us}) { // at any point of the pass
        pending = store.reader("released")->start();
        std::this_thread::sleep_for(delay);
        EXPECT_TRUE(pending.get());
        MainQueue::shared().pump();
    }
}
