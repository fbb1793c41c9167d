// The store's owner: the container loaded once, on first use, configured as
// the views need it; and one history run per remote change, off the posting
// thread, for as long as the owner lives. (A damaged store is the program
// test's: `tasket lists` over a file that is not a database.)
#include "store/local_data_manager.h"
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <thread>

using namespace tasket::store;
using namespace std::chrono_literals;
using tasket::objectstore::PersistentStore;
using tasket::testing::TempDir;
namespace fs = std::filesystem;

namespace {

// Counts the runs of a manager's history-processing hook, and those that
// ran on the test's thread or for another manager.
class Runs {
  public:
    explicit Runs(LocalDataManager& manager) {
        manager.setHistoryProcessing([this, &manager](const auto& ran) {
            std::lock_guard lock(m_mutex);
            ++m_count;
            m_misplaced += std::this_thread::get_id() == m_test || ran.get() != &manager;
            m_cv.notify_all();
        });
    }
    /// Whether at least `n` runs happened within `timeout`.
    bool waitFor(std::size_t n, std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(m_mutex);
        return m_cv.wait_for(lock, timeout, [&] { return m_count >= n; });
    }
    std::size_t count() {
        std::lock_guard lock(m_mutex);
        return m_count;
    }
    std::size_t misplaced() {
        std::lock_guard lock(m_mutex);
        return m_misplaced;
    }

  private:
    const std::thread::id m_test = std::this_thread::get_id();
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::size_t m_count = 0;
    std::size_t m_misplaced = 0;
};

void postRemoteChange() {
    static const int sender = 0;
    tasket::platform::NotificationCenter::defaultCenter().post(
        tasket::objectstore::kStoreRemoteChangeNotification, &sender,
        tasket::objectstore::RemoteChangeInfo{});
}

} // namespace

TEST(LocalDataManager, LoadsTheContainerOnceOnFirstAccessConfiguredForTheViews) {
    TempDir dir;
    // Even a damaged file is not looked at until the container is used.
    std::ofstream(dir / "TK_Data.sqlite") << "not a store";
    auto untouched = LocalDataManager::make(dir.path());
    EXPECT_EQ(untouched->storeURL(), dir / "TK_Data.sqlite");
    EXPECT_EQ(untouched.use_count(), 1); // the observer holds it weakly
    fs::remove(dir / "TK_Data.sqlite");

    auto manager = LocalDataManager::make(dir.path());
    EXPECT_TRUE(manager->isObservingRemoteChanges());
    EXPECT_TRUE(fs::is_empty(dir.path()));
    const auto& first = manager->container();
    ASSERT_TRUE(first);
    EXPECT_TRUE(fs::exists(manager->storeURL()));
    EXPECT_EQ(manager->container(), first);
    EXPECT_TRUE(first->store()->options().historyTracking);
    EXPECT_TRUE(first->store()->options().remoteChangeNotifications);

    const auto& view = manager->viewContext();
    EXPECT_EQ(view, first->viewContext());
    EXPECT_FALSE(view->automaticallyMergesChangesFromParent());
    EXPECT_EQ(view->name(), kViewContextName);
    EXPECT_EQ(view->mergePolicy(), tasket::objectstore::MergePolicy::mergeByPropertyObjectTrump);
    EXPECT_TRUE(view->shouldDeleteInaccessibleFaults());
    auto background = manager->newBackgroundContext();
    EXPECT_EQ(&background->store(), first->store().get());
    EXPECT_EQ(background->concurrencyType(), tasket::objectstore::ConcurrencyType::privateQueue);
}

TEST(LocalDataManager, EachRemoteChangeStartsOneHistoryRunOffThePostingThreadWhileItLives) {
    TempDir dir;
    auto manager = LocalDataManager::make(dir.path());
    Runs runs(*manager);
    for (int i = 0; i < 3; ++i)
        postRemoteChange();
    ASSERT_TRUE(runs.waitFor(3));

    // Runs are queued in order; a manager that starts observing now gets only
    // the next change, and its run comes after the first manager's.
    auto witness = LocalDataManager::make(dir.path());
    Runs witnessRuns(*witness);
    postRemoteChange();
    ASSERT_TRUE(witnessRuns.waitFor(1));
    EXPECT_EQ(runs.count(), 4u);
    EXPECT_EQ(runs.misplaced() + witnessRuns.misplaced(), 0u);

    // A write through another connection leads to one run.
    (void)witness->container();
    auto other = PersistentStore::open(witness->storeURL(), tkDataModel(), {true, false});
    ASSERT_TRUE(other) << other.error().message;
    auto context = tasket::objectstore::ObjectContext::make(
        *other, tasket::objectstore::ConcurrencyType::privateQueue);
    context->performAndWait([&] {
        TK_Task::insertNew(*context)->setTitle("From elsewhere");
        ASSERT_TRUE(context->save());
    });
    ASSERT_TRUE(witnessRuns.waitFor(2));
    EXPECT_FALSE(witnessRuns.waitFor(3, 300ms));

    // A change after the manager is gone is ignored. (The run may still hold
    // the manager for a moment after the hook returned.)
    std::weak_ptr<LocalDataManager> gone = manager;
    for (int i = 0; i < 1000 && manager.use_count() > 1; ++i)
        std::this_thread::sleep_for(1ms);
    manager.reset();
    ASSERT_TRUE(gone.expired());
    const std::size_t before = runs.count();
    postRemoteChange();
    ASSERT_TRUE(witnessRuns.waitFor(3));
    EXPECT_EQ(runs.count(), before);
}

// Every save that changes an object raises its counter by one, up to the
// largest Int16, unless it sets the counter itself; a background context of
// the container does the same, one whose hook was cleared (the cloud's) not.
TEST(LocalDataManager, SavesRaiseTheModificationCounter) {
    TempDir dir;
    auto manager = LocalDataManager::make(dir.path());
    auto view = manager->viewContext();
    auto task = view->insertNewObject("TK_Task");
    auto idle = view->insertNewObject("TK_Tag");
    ASSERT_TRUE(view->save());
    const auto counter = [](const auto& object) {
        return std::get<std::int64_t>(object->value("numberOfModifications"));
    };
    EXPECT_EQ(counter(task), 1);
    struct Step {
        std::optional<std::int64_t> set; // the counter the save sets itself
        bool hook;
        std::int64_t after;
    };
    const Step steps[] = {
        {std::nullopt, true, 2},      {32'766, true, 32'766}, {std::nullopt, true, 32'767},
        {std::nullopt, true, 32'767}, {5, false, 5},          {std::nullopt, false, 5}};
    int edit = 0;
    for (const auto& step : steps) {
        auto context = manager->newBackgroundContext();
        if (!step.hook)
            context->setWillSave({});
        context->performAndWait([&] {
            auto mine = *context->existingObject(task->objectID());
            if (step.set)
                mine->setValue("numberOfModifications", *step.set);
            mine->setValue("title", std::to_string(++edit));
            ASSERT_TRUE(context->save());
            ASSERT_TRUE(context->save()); // nothing changed: nothing raised
            EXPECT_EQ(counter(mine), step.after) << edit;
        });
    }
    view->refresh(idle, false);
    EXPECT_EQ(counter(idle), 1);
}
