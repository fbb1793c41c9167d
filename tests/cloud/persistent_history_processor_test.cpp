// Persistent-history processing with another real process writing the
// store (seed_store adds, renames and deletes lists): the live lists of
// this process follow; token files that are missing, garbage or cannot be
// written; purging up to the slowest live reader; a processor released in
// the middle of a pass.
#include "cloud/persistent_history_processor.h"
#include "objectstore/history.h"
#include "platform/main_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "store/local_data_fetch_manager.h"
#include "store/lookup.h"
#include "store/records.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <thread>

using namespace tasket::cloud;
using namespace tasket::store;
using namespace std::chrono_literals;
using tasket::objectstore::archiveToken;
using tasket::objectstore::HistoryToken;
using tasket::platform::InMemoryPreferencesSuite;
using tasket::platform::MainQueue;
using tasket::testing::TempDir;
namespace fs = std::filesystem;

namespace {

void writeBytes(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string archived(HistoryToken token) {
    const auto bytes = archiveToken(token);
    return {bytes.begin(), bytes.end()};
}

/// Runs seed_store on the store in `folder`, as another program would write it.
void otherProgram(const fs::path& folder, const TempDir& home, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), folder.string());
    const auto run =
        tasket::testing::runProgram(SEED_STORE_BINARY, arguments, {.home = home.path()});
    ASSERT_EQ(run.status, 0) << run.err;
}

std::vector<tasket::objectstore::HistoryTransaction> storedHistory(LocalDataManager& data) {
    return *data.container()->store()->historyAfter(std::nullopt);
}

class HistoryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        auto made = LocalDataFetchManager::make(
            data,
            std::make_shared<tasket::settings::CustomizationManager>(
                std::make_shared<InMemoryPreferencesSuite>(
                    std::string(tasket::settings::keys::kAppGroupSuite)),
                std::make_shared<InMemoryPreferencesSuite>(
                    std::string(tasket::settings::keys::kStandardSuite))),
            std::make_shared<tasket::settings::FocusManager>(),
            collectionKinds({CollectionKind::categories}));
        ASSERT_TRUE(made);
        lists = std::move(*made);
    }
    void TearDown() override {
        lists.reset();
        MainQueue::shared().pump();
    }

    void otherProgram(std::vector<std::string> arguments) {
        ::otherProgram(dir.path(), home, std::move(arguments));
    }

    /// The titles of the live lists, sorted.
    std::vector<std::string> titles() const {
        std::vector<std::string> out;
        for (const auto& list : offeredCategories(lists->categories().value()))
            out.push_back(list->title().value_or(""));
        std::ranges::sort(out);
        return out;
    }

    /// Runs the main queue until the live lists are `expected`.
    bool follow(const std::vector<std::string>& expected) {
        return MainQueue::shared().runUntil([&] { return titles() == expected; }, 10s);
    }

    std::shared_ptr<PersistentHistoryProcessor> processor(std::string program = "reader") {
        return PersistentHistoryProcessor::make(*data, {.program = std::move(program)});
    }

    TempDir dir;
    TempDir home;
    std::shared_ptr<LocalDataManager> data = LocalDataManager::make(dir.path());
    std::unique_ptr<LocalDataFetchManager> lists;
};

} // namespace

TEST_F(HistoryTest, TheLiveListsFollowAnotherProcessesSaves) {
    installHistoryProcessing(*data, "reader",
                             [](const auto& error) { ADD_FAILURE() << error.message; });
    const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> steps = {
        {{"--list", "Errands"}, {"Errands"}},
        {{"--list", "Work", "--list", "Home"}, {"Errands", "Home", "Work"}},
        {{"--rename", "Work=Office"}, {"Errands", "Home", "Office"}},
        {{"--delete", "Errands"}, {"Home", "Office"}},
    };
    for (const auto& [arguments, expected] : steps) {
        otherProgram(arguments);
        EXPECT_TRUE(follow(expected)) << arguments.front() << " " << arguments.at(1);
    }
    // The only reader has read everything, so all of it is purged.
    // (Purging posts nothing to the main queue: poll.)
    for (int i = 0; i < 1000 && !storedHistory(*data).empty(); ++i)
        std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(storedHistory(*data).empty());
    EXPECT_EQ(fs::status(tokenFilePath(dir.path(), "reader")).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(HistoryTest, AMissingOrGarbageTokenFileReadsHistoryFromItsBeginning) {
    otherProgram({"--list", "A"});
    otherProgram({"--list", "B"});
    const auto history = storedHistory(*data);
    ASSERT_EQ(history.size(), 2u);
    const std::string first = archived(*history.front().changes.token);
    // A live reader whose file is no token keeps every case's history whole.
    writeBytes(tokenFilePath(dir.path(), "keeper"), "garbage");

    struct Case {
        const char* program;
        std::optional<std::string> file;
        std::size_t merged;
    };
    const std::vector<Case> cases = {
        {"missing", std::nullopt, 2},
        {"garbage", "TKHT but not a token", 2},
        {"truncated", first.substr(0, first.size() - 1), 2},
        {"empty", "", 2},
        {"read-to-the-first", first, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.program);
        if (c.file)
            writeBytes(tokenFilePath(dir.path(), c.program), *c.file);
        const auto pass = processor(c.program)->process();
        ASSERT_TRUE(pass) << pass.error().message;
        EXPECT_EQ(pass->transactions, c.merged);
        EXPECT_EQ(readReaderToken(tokenFilePath(dir.path(), c.program)),
                  history.back().changes.token);
    }
    EXPECT_EQ(storedHistory(*data).size(), 2u);
    EXPECT_TRUE(follow({"A", "B"}));
}

TEST_F(HistoryTest, ATokenFileThatCannotBeWrittenKeepsTheOldOneAndTheChangesMergeAgainOnce) {
    auto reader = processor();
    otherProgram({"--list", "A"});
    ASSERT_TRUE(reader->process());
    const auto kept = readReaderToken(reader->tokenFile());
    ASSERT_TRUE(kept);

    otherProgram({"--list", "B"});
    const fs::path blocker = reader->tokenFile().string() + ".tmp"; // the file cannot be replaced
    fs::create_directory(blocker);
    EXPECT_FALSE(reader->process());
    EXPECT_EQ(readReaderToken(reader->tokenFile()), kept);
    EXPECT_TRUE(follow({"A", "B"}));

    fs::remove(blocker);
    const auto again = reader->process();
    ASSERT_TRUE(again) << again.error().message;
    EXPECT_EQ(again->transactions, 1u);
    EXPECT_GT(readReaderToken(reader->tokenFile()), kept);
    MainQueue::shared().pump();
    EXPECT_EQ(titles(), (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(lists->categories().value().size(), 2u);
}

TEST(HistoryPurge, KeepsWhatTheSlowestLiveReaderHasNotRead) {
    struct Case {
        const char* name;
        std::optional<int> slowReaderAt; // index of the transaction it has read; nullopt: no token
        bool slowReaderGone;             // its file untouched for longer than the limit
        bool slowReaderExists;
        std::size_t kept;
    };
    const std::vector<Case> cases = {
        {"no other reader", std::nullopt, false, false, 0},
        {"a reader at the first", 0, false, true, 2},
        {"that reader gone for good", 0, true, true, 0},
        {"a live reader whose file is no token", std::nullopt, false, true, 3},
        {"that reader gone for good", std::nullopt, true, true, 0},
    };
    TempDir home;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        for (const char* title : {"A", "B", "C"})
            otherProgram(dir.path(), home, {"--list", title});
        auto data = LocalDataManager::make(dir.path());
        data->setWatchesOtherProcesses(false);
        const auto history = storedHistory(*data);
        ASSERT_EQ(history.size(), 3u);
        if (c.slowReaderExists) {
            const auto slow = tokenFilePath(dir.path(), "slow");
            writeBytes(slow, c.slowReaderAt ? archived(*history.at(*c.slowReaderAt).changes.token)
                                            : "garbage");
            if (c.slowReaderGone)
                fs::last_write_time(slow,
                                    fs::file_time_type::clock::now() - kDefaultStaleReaderAge - 1h);
        }
        const auto pass = PersistentHistoryProcessor::make(*data, {.program = "fast"})->process();
        ASSERT_TRUE(pass) << pass.error().message;
        EXPECT_EQ(pass->transactions, 3u);
        EXPECT_EQ(storedHistory(*data).size(), c.kept);
    }
}

TEST_F(HistoryTest, ReleasingTheProcessorDuringAPassEndsItQuietly) {
    {
        // Many transactions from another connection, so a pass takes a while.
        auto writer = LocalDataManager::make(dir.path());
        auto& view = *writer->viewContext();
        for (int i = 0; i < 300; ++i) {
            TK_Category::insertNew(view)->setTitle("List " + std::to_string(i));
            ASSERT_TRUE(view.save());
        }
    }
    // Released while its pass waits on the history queue: it ends at once.
    {
        auto reader = processor("released");
        std::promise<void> go;
        reader->historyContext()->perform([wait = go.get_future().share()] { wait.wait(); });
        auto pending = reader->start();
        reader.reset();
        go.set_value();
        const auto pass = pending.get();
        ASSERT_TRUE(pass);
        EXPECT_TRUE(pass->ownerReleased);
        EXPECT_FALSE(fs::exists(tokenFilePath(dir.path(), "released")));
        MainQueue::shared().pump();
        EXPECT_TRUE(lists->categories().value().empty());
    }
    // Released at some point of its pass: it ends without an error.
    for (const auto delay : {0us, 300us, 3000us, 30000us}) {
        auto reader = processor("released");
        auto pending = reader->start();
        std::this_thread::sleep_for(delay);
        reader.reset();
        const auto pass = pending.get();
        ASSERT_TRUE(pass) << pass.error().message;
        MainQueue::shared().pump();
        fs::remove(tokenFilePath(dir.path(), "released"));
    }
}
