#include "objectstore/object_context.h"
#include "platform/notification_center.h"
#include "support/saved.h"
#include "support/temp_dir.h"
#include "support/test_model.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <set>
#include <thread>

using namespace tasket::objectstore;
using tasket::testing::makeTestModel;
using tasket::testing::TempDir;
using namespace std::chrono_literals;

namespace {

int run(const std::vector<std::string>& args) {
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<char*> argv;
        for (const auto& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

template <class Pred> bool waitFor(Pred p, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
        if (p())
            return true;
        std::this_thread::sleep_for(5ms);
    }
    return p();
}

} // namespace

TEST(RemoteChanges, OneNotificationPerBurstOfAnotherProcessAndNoneForOwnSaves) {
    TempDir dir;
    const auto path = dir / "r.sqlite";
    auto store = *PersistentStore::open(path, makeTestModel(), StoreOptions{true, true});
    std::atomic<int> notifications{0};
    std::optional<HistoryToken> lastToken;
    std::mutex m;
    auto token = tasket::platform::NotificationCenter::defaultCenter().addObserver(
        kStoreRemoteChangeNotification, store.get(), [&](const tasket::platform::Notification& n) {
            std::lock_guard lock(m);
            lastToken = std::any_cast<RemoteChangeInfo>(n.userInfo).historyToken;
            ++notifications;
        });

    auto own = ObjectContext::make(store, ConcurrencyType::privateQueue);
    own->performAndWait([&] {
        for (int i = 0; i < 3; ++i) {
            own->insertNewObject("Item");
            ASSERT_SAVED(own);
        }
    });
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(notifications, 0);
    const auto before = *store->currentHistoryToken();

    ASSERT_EQ(run({STORE_WRITER, path.string(), "burst", "5"}), 0);
    EXPECT_TRUE(waitFor([&] { return notifications >= 1; }, 5s));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(notifications, 1);

    ASSERT_EQ(run({STORE_WRITER, path.string(), "burst", "2"}), 0);
    EXPECT_TRUE(waitFor([&] { return notifications >= 2; }, 5s));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(notifications, 2);

    // The other process's rows arrive through history.
    auto history = store->historyAfter(before);
    ASSERT_TRUE(history);
    EXPECT_EQ(history->size(), 7u);
    for (const auto& tx : *history)
        EXPECT_EQ(tx.contextName, "Writer");
    std::lock_guard lock(m);
    EXPECT_EQ(lastToken, history->back().token);
}

TEST(CrashSafety, KilledWriterLeavesEveryCommittedSaveAndNoHalfOne) {
    TempDir dir;
    const auto path = dir / "c.sqlite";
    std::mt19937 random(20261121);
    std::set<long> committed;
    for (int round = 0; round < 50; ++round) {
        int out[2];
        ASSERT_EQ(pipe(out), 0);
        pid_t pid = fork();
        if (pid == 0) {
            dup2(out[1], 1);
            close(out[0]);
            execl(STORE_WRITER, STORE_WRITER, path.c_str(), "crash", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(out[1]);
        // Kill at a random moment after the first committed save, however
        // slowly the child starts (sanitizers, a loaded machine).
        std::string text;
        char buffer[4096];
        ssize_t n = 0;
        while (text.find('\n') == std::string::npos &&
               (n = read(out[0], buffer, sizeof buffer)) > 0)
            text.append(buffer, static_cast<std::size_t>(n));
        std::this_thread::sleep_for(
            std::chrono::milliseconds(std::uniform_int_distribution<>(0, 40)(random)));
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        while ((n = read(out[0], buffer, sizeof buffer)) > 0)
            text.append(buffer, static_cast<std::size_t>(n));
        close(out[0]);
        // Each round's numbers start at 1 again; remember them per round.
        std::size_t pos = 0;
        while ((pos = text.find('\n')) != std::string::npos) {
            committed.insert(round * 1000000L + std::stol(text.substr(0, pos)));
            text.erase(0, pos + 1);
        }

        {
            // The program's own way in must accept what the kill left.
            auto reopened = PersistentStore::open(path, makeTestModel());
            ASSERT_TRUE(reopened) << "round " << round << ": " << reopened.error().message;
        }
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
        sqlite3_stmt* s = nullptr;
        sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr);
        ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
        EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)), "ok");
        sqlite3_finalize(s);
        // Every item has its label and join row; every label its item.
        sqlite3_prepare_v2(db,
                           "SELECT (SELECT count(*) FROM Item), (SELECT count(*) FROM Label), "
                           "(SELECT count(*) FROM _J_Item_labels j JOIN Item i ON i.pk = j.src "
                           " JOIN Label l ON l.pk = j.dst AND l.name = i.title)",
                           -1, &s, nullptr);
        ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
        const auto items = sqlite3_column_int64(s, 0);
        EXPECT_EQ(items, sqlite3_column_int64(s, 1));
        EXPECT_EQ(items, sqlite3_column_int64(s, 2));
        sqlite3_finalize(s);
        // Every reported save is there.
        long reported = 0;
        for (long c : committed)
            if (c / 1000000L == round)
                ++reported;
        sqlite3_prepare_v2(db, "SELECT count(*) FROM Item", -1, &s, nullptr);
        sqlite3_step(s);
        const auto total = sqlite3_column_int64(s, 0);
        sqlite3_finalize(s);
        sqlite3_close(db);
        static std::int64_t previousTotal = 0;
        EXPECT_GE(total - previousTotal, reported) << "round " << round;
        previousTotal = total;
    }
    EXPECT_GT(committed.size(), 50u);
}
