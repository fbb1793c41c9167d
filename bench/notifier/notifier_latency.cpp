// Latency from another process's commit that switches a task's reminder on
// to the request being pending in the notification queue, scheduled by the
// running tasket-notifier (which arms its alarm in the same step). This
// program is the other process: it starts the daemon in a private session
// bus, saves one task with a due-date reminder at a time, and times each
// save until the daemon's request shows up in the queue.
//
//   notifier_latency TASKET_NOTIFIER [CHANGES]   (default 100; prints min, median, max in ms)
#include "objectstore/object_context.h"
#include "platform/notifications/notification_queue.h"
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <thread>

using namespace tasket;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: notifier_latency TASKET_NOTIFIER [CHANGES]\n";
        return 64;
    }
    const int changes = argc > 2 ? std::stoi(argv[2]) : 100;
    testing::TempDir dir;
    const auto group = testing::groupFolder(dir.path());
    const auto queueFile = group / platform::NotificationQueue::kFileName;
    // The daemon in a session bus of its own, with no notification server:
    // scheduling does not need one.
    // (It writes its process id, so that ending it ends its bus too.)
    const pid_t session = testing::startProgram(
        "/usr/bin/dbus-run-session",
        {"--", "sh", "-c", "echo $$ > daemon.pid && exec \"$0\"", fs::absolute(argv[1]).string()},
        {.home = dir.path()});
    for (int i = 0; i < 1000 && !fs::exists(queueFile); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));

    auto store = objectstore::PersistentStore::open(group / "TK_Data.sqlite", store::tkDataModel(),
                                                    objectstore::StoreOptions{true, false});
    auto queue = platform::NotificationQueue::open(queueFile);
    if (!store || !queue) {
        std::cerr << "notifier_latency: cannot open what the daemon made: "
                  << (store ? queue.error().message : store.error().message) << '\n';
        return 69;
    }
    auto context =
        objectstore::ObjectContext::make(*store, objectstore::ConcurrencyType::mainQueue);
    const auto due =
        platform::Date::fromSystem(std::chrono::system_clock::now()).addingSeconds(86400);
    std::vector<double> ms;
    for (int i = 0; i < changes; ++i) {
        const std::string id = fmt::format("bench-{}", i);
        auto task = store::TK_Task::insertNew(*context);
        task->setTaskID(id);
        task->setTitle(id);
        task->setIsRemindEnabled(true);
        task->setDueDate(due);
        task->setDueDateAndTime(due);
        const auto start = Clock::now();
        if (!context->save())
            return 74;
        for (bool pending = false; !pending;) {
            auto requests = (*queue)->pendingNotificationRequests();
            pending = requests && std::ranges::any_of(
                                      *requests, [&](const auto& r) { return r.identifier == id; });
            if (!pending && Clock::now() - start > std::chrono::seconds(5)) {
                std::cerr << "notifier_latency: the daemon did not schedule " << id << '\n';
                return 70;
            }
            if (!pending)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    pid_t daemon = 0;
    std::ifstream(dir / "daemon.pid") >> daemon;
    if (daemon > 0)
        ::kill(daemon, SIGTERM);
    ::waitpid(session, nullptr, 0);
    std::ranges::sort(ms);
    std::cout << fmt::format("commit -> pending over {} changes: min {:.1f} ms, median {:.1f} ms, "
                             "max {:.1f} ms\n",
                             ms.size(), ms.front(), ms[ms.size() / 2], ms.back());
    return 0;
}
