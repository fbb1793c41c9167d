#include "helpers/engine_fixture.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

using namespace tasket::objectstore;
using tasket::testing::makeTestModel;
using tasket::testing::scalar;
using tasket::testing::TempDir;
using namespace std::chrono_literals;

namespace {

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
        kStoreRemoteChangeNotification, store.get(),
        [&](const RemoteChangeInfo& info, const void*) {
            std::lock_guard lock(m);
            lastToken = info.historyToken;
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

    int bursts = 0;
    for (const char* saves : {"5", "2"}) { // the second burst shows the watch goes on
        const std::string writer =
            fmt::format("{} {} burst {}", STORE_WRITER, path.string(), saves);
        ASSERT_EQ(std::system(writer.c_str()), 0);
        ++bursts;
        EXPECT_TRUE(waitFor([&] { return notifications >= bursts; }, 5s));
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(notifications, bursts);
    }

    // The other process's rows arrive through history.
    auto history = store->historyAfter(before);
    ASSERT_TRUE(history);
    EXPECT_EQ(history->size(), 7u);
    for (const auto& tx : *history)
        EXPECT_EQ(tx.changes.contextName, "Writer");
    std::lock_guard lock(m);
    EXPECT_EQ(lastToken, history->back().changes.token);
}

TEST(CrashSafety, KilledWriterLeavesEveryCommittedSaveAndNoHalfOne) {
    TempDir dir;
    const auto path = dir / "c.sqlite";
    std::mt19937 random(20261121);
    std::int64_t committed = 0, previousItems = 0;
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
        const auto reportedNow = std::count(text.begin(), text.end(), '\n'); // whole lines
        committed += reportedNow;
        {
            // The program's own way in must accept what the kill left.
            auto reopened = PersistentStore::open(path, makeTestModel());
            ASSERT_TRUE(reopened) << "round " << round << ": " << reopened.error().message;
        }
        EXPECT_EQ(scalar(path, "SELECT count(*) FROM pragma_integrity_check "
                               "WHERE integrity_check = 'ok'"),
                  1);
        // Every item has its label and join row; every label its item; every
        // reported save is there.
        const auto items = scalar(path, "SELECT count(*) FROM Item");
        EXPECT_EQ(scalar(path, "SELECT count(*) FROM Label"), items);
        EXPECT_EQ(scalar(path, "SELECT count(*) FROM _J_Item_labels j JOIN Item i ON i.pk = j.src "
                               "JOIN Label l ON l.pk = j.dst AND l.name = i.title"),
                  items);
        EXPECT_GE(items - previousItems, reportedNow) << "round " << round;
        previousItems = items;
    }
    EXPECT_GT(committed, 50);
}
