#include "store/local_data_manager.h"
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/fatal_trap.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <iterator>
#include <thread>

using namespace tasket::store;
using namespace std::chrono_literals;
using tasket::objectstore::MergePolicy;
using tasket::objectstore::PersistentStore;
using tasket::platform::NotificationCenter;
using tasket::testing::FatalStop;
using tasket::testing::FatalTrap;
using tasket::testing::TempDir;
namespace fs = std::filesystem;

namespace {

// Records the runs of a manager's history-processing hook.
class Runs {
  public:
    LocalDataManager::HistoryProcessing hook() {
        return [this](const std::shared_ptr<LocalDataManager>& manager) {
            std::lock_guard lock(m_mutex);
            m_threads.push_back(std::this_thread::get_id());
            m_managers.push_back(manager.get());
            m_cv.notify_all();
        };
    }
    /// Waits until at least `n` runs happened.
    bool waitFor(std::size_t n, std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(m_mutex);
        return m_cv.wait_for(lock, timeout, [&] { return m_threads.size() >= n; });
    }
    std::size_t count() {
        std::lock_guard lock(m_mutex);
        return m_threads.size();
    }
    /// Whether every run so far ran off `thread` for `manager`.
    bool allOff(std::thread::id thread, const LocalDataManager* manager) {
        std::lock_guard lock(m_mutex);
        for (std::size_t i = 0; i < m_threads.size(); ++i)
            if (m_threads[i] == thread || m_managers[i] != manager)
                return false;
        return true;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::vector<std::thread::id> m_threads;
    std::vector<const LocalDataManager*> m_managers;
};

void postRemoteChange() {
    static const int sender = 0;
    NotificationCenter::defaultCenter().post(tasket::objectstore::kStoreRemoteChangeNotification,
                                             &sender, tasket::objectstore::RemoteChangeInfo{});
}

std::string contents(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class LocalDataManagerTest : public ::testing::Test {
  protected:
    TempDir dir;
    FatalTrap trap;
};

} // namespace

TEST_F(LocalDataManagerTest, ConstructingLeavesTheStoreFileAlone) {
    auto manager = LocalDataManager::make(dir.path());
    EXPECT_EQ(manager->storeURL(), dir / "TK_Data.sqlite");
    EXPECT_TRUE(manager->isObservingRemoteChanges());
    EXPECT_EQ(manager.use_count(), 1); // the observer holds it weakly
    EXPECT_TRUE(fs::is_empty(dir.path()));

    // Even a damaged file is not looked at until the container is used.
    std::ofstream(dir / "TK_Data.sqlite") << "not a store";
    auto second = LocalDataManager::make(dir.path());
    EXPECT_EQ(contents(dir / "TK_Data.sqlite"), "not a store");
}

// The names and the merge policy are in the golden table and the engine's
// own tests; here: loaded once, and configured as the views need it.
TEST_F(LocalDataManagerTest, LoadsTheContainerOnceOnFirstAccess) {
    auto manager = LocalDataManager::make(dir.path());
    const auto& first = manager->container();
    ASSERT_TRUE(first);
    EXPECT_TRUE(fs::exists(manager->storeURL()));
    EXPECT_EQ(manager->container(), first);
    EXPECT_EQ(manager->container()->store(), first->store());
    EXPECT_TRUE(first->store()->options().historyTracking);
    EXPECT_TRUE(first->store()->options().remoteChangeNotifications);

    const auto& view = manager->viewContext();
    EXPECT_EQ(view, first->viewContext());
    EXPECT_FALSE(view->automaticallyMergesChangesFromParent());
    EXPECT_EQ(view->name(), kViewContextName);
    EXPECT_EQ(view->mergePolicy(), MergePolicy::mergeByPropertyObjectTrump);
    EXPECT_TRUE(view->shouldDeleteInaccessibleFaults());
    auto background = manager->newBackgroundContext();
    EXPECT_EQ(&background->store(), first->store().get());
    EXPECT_EQ(background->concurrencyType(), tasket::objectstore::ConcurrencyType::privateQueue);
}

TEST_F(LocalDataManagerTest, ADamagedStoreStopsWithTheStoresReasonAndIsLeftAlone) {
    const std::string garbage(4096, 'z');
    std::ofstream(dir / "TK_Data.sqlite", std::ios::binary) << garbage;
    auto reason = PersistentStore::open(dir / "TK_Data.sqlite", tkDataModel());
    ASSERT_FALSE(reason);

    auto manager = LocalDataManager::make(dir.path());
    try {
        (void)manager->container();
        FAIL() << "the container loaded";
    } catch (const FatalStop& stop) {
        EXPECT_EQ(stop.message, "There was an error loading the persistent store: " +
                                    reason.error().message + ".");
    }
    EXPECT_EQ(contents(dir / "TK_Data.sqlite"), garbage);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);
}

TEST_F(LocalDataManagerTest, EachRemoteChangeStartsOneHistoryRunOffThePostingThread) {
    auto manager = LocalDataManager::make(dir.path());
    Runs runs;
    manager->setHistoryProcessing(runs.hook());
    for (int i = 0; i < 3; ++i)
        postRemoteChange();
    ASSERT_TRUE(runs.waitFor(3));

    // Runs are queued in order; a manager that starts observing now gets only
    // the next change, and its run comes after the first manager's.
    auto witness = LocalDataManager::make(dir.path());
    Runs witnessRuns;
    witness->setHistoryProcessing(witnessRuns.hook());
    postRemoteChange();
    ASSERT_TRUE(witnessRuns.waitFor(1));
    EXPECT_EQ(runs.count(), 4u);
    EXPECT_TRUE(runs.allOff(std::this_thread::get_id(), manager.get()));
}

TEST_F(LocalDataManagerTest, ARemoteChangeAfterTheManagerIsGoneIsIgnored) {
    auto manager = LocalDataManager::make(dir.path());
    Runs runs;
    manager->setHistoryProcessing(runs.hook());
    postRemoteChange();
    ASSERT_TRUE(runs.waitFor(1));
    std::weak_ptr<LocalDataManager> gone = manager;
    // The run may still hold the manager for a moment after the hook returned.
    for (int i = 0; i < 1000 && manager.use_count() > 1; ++i)
        std::this_thread::sleep_for(1ms);
    manager.reset();
    ASSERT_TRUE(gone.expired());

    auto witness = LocalDataManager::make(dir.path());
    Runs witnessRuns;
    witness->setHistoryProcessing(witnessRuns.hook());
    postRemoteChange();
    ASSERT_TRUE(witnessRuns.waitFor(1));
    EXPECT_EQ(runs.count(), 1u);
}

TEST_F(LocalDataManagerTest, AWriteThroughAnotherConnectionLeadsToOneHistoryRun) {
    auto manager = LocalDataManager::make(dir.path());
    Runs runs;
    manager->setHistoryProcessing(runs.hook());
    (void)manager->container();

    auto other = PersistentStore::open(manager->storeURL(), tkDataModel(), {true, false});
    ASSERT_TRUE(other) << other.error().message;
    auto context = tasket::objectstore::ObjectContext::make(
        *other, tasket::objectstore::ConcurrencyType::privateQueue);
    context->performAndWait([&] {
        TK_Task::insertNew(*context)->setTitle("From elsewhere");
        ASSERT_TRUE(context->save());
    });
    ASSERT_TRUE(runs.waitFor(1));
    EXPECT_FALSE(runs.waitFor(2, 300ms));
    EXPECT_TRUE(runs.allOff(std::this_thread::get_id(), manager.get()));
}
