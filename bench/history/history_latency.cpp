// Latency from another process's commit to the republished lists of a
// process that shows them live (as the share form does): this program runs
// itself as the writer, which adds one list per save when told to and
// reports the steady-clock instant its save returned; the reader takes the
// instant its live lists were published with the new list.
//
//   history_latency [CHANGES]        (default 200; prints median and p99 in ms)
#include "cloud/persistent_history_processor.h"
#include "history/live_lists.h"
#include "platform/main_queue.h"
#include "store/records.h"
#include "support/temp_dir.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

using namespace tasket;
using Clock = std::chrono::steady_clock;

namespace {

std::int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

// Reads one byte per change from standard input, adds a list, saves, and
// writes the instant the save returned to standard output.
int writer(const std::filesystem::path& folder) {
    auto data = store::LocalDataManager::make(folder);
    data->setWatchesOtherProcesses(false);
    auto& view = *data->viewContext();
    char go = 0;
    for (int i = 0; ::read(STDIN_FILENO, &go, 1) == 1; ++i) {
        auto list = store::TK_Category::insertNew(view);
        list->setCategoryID(fmt::format("list-{}", i));
        list->setTitle(fmt::format("List {}", i));
        if (!view.save())
            return 74;
        const std::string line = fmt::format("{}\n", nowNs());
        if (::write(STDOUT_FILENO, line.data(), line.size()) < 0)
            return 74;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "--writer")
        return writer(argv[2]);
    const int changes = argc > 1 ? std::stoi(argv[1]) : 200;

    platform::MainQueue::shared().claimCurrentThread();
    const testing::TempDir folder;
    bench::LiveLists live(folder.path());
    cloud::installHistoryProcessing(*live.data, "history_latency", [](const auto& error) {
        std::cerr << "history_latency: " << error.message << '\n';
    });
    std::size_t expected = 0;
    std::int64_t publishedAt = 0;
    auto subscription = live.lists->categories().subscribe([&](const auto& lists) {
        if (lists.size() == expected)
            publishedAt = nowNs();
    });

    int toWriter[2];
    int fromWriter[2];
    if (::pipe(toWriter) != 0 || ::pipe(fromWriter) != 0)
        return 71;
    const std::string folderText = folder.path().string();
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(toWriter[0], STDIN_FILENO);
        ::dup2(fromWriter[1], STDOUT_FILENO);
        ::close(toWriter[1]);
        ::close(fromWriter[0]);
        ::execl("/proc/self/exe", argv[0], "--writer", folderText.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(toWriter[0]);
    ::close(fromWriter[1]);
    FILE* commits = ::fdopen(fromWriter[0], "r");

    std::vector<double> latencies;
    for (int i = 0; i < changes; ++i) {
        expected = static_cast<std::size_t>(i) + 1;
        publishedAt = 0;
        if (::write(toWriter[1], "+", 1) != 1)
            return 74;
        long long committedAt = 0;
        if (std::fscanf(commits, "%lld", &committedAt) != 1)
            return 74;
        if (!platform::MainQueue::shared().runUntil([&] { return publishedAt != 0; },
                                                    std::chrono::seconds(10))) {
            std::cerr << "history_latency: change " << i << " never reached the lists\n";
            return 1;
        }
        latencies.push_back(static_cast<double>(publishedAt - committedAt) / 1e6);
    }
    ::close(toWriter[1]);
    int status = 0;
    ::waitpid(child, &status, 0);

    std::ranges::sort(latencies);
    const auto at = [&](double q) {
        return latencies[std::min(
            latencies.size() - 1,
            static_cast<std::size_t>(q * static_cast<double>(latencies.size())))];
    };
    std::cout << fmt::format("commit to republished lists over {} changes: median {:.1f} ms, p99 "
                             "{:.1f} ms, max {:.1f} ms\n",
                             latencies.size(), at(0.5), at(0.99), latencies.back());
    return 0;
}
