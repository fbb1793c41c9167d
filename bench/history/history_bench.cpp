// One history pass over 1,000 pending transactions (one new list each,
// written through another store connection): the pass alone, on the
// history context's queue, and the pass with its merge into a view context
// whose live lists republish.
#include "cloud/persistent_history_processor.h"
#include "history/live_lists.h"
#include "platform/main_queue.h"
#include "store/records.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>

using namespace tasket;

namespace {

constexpr int kTransactions = 1000;

// Another connection's transactions, one new list each.
void writeLists(const std::filesystem::path& folder) {
    auto writer = store::LocalDataManager::make(folder);
    writer->setWatchesOtherProcesses(false);
    auto& view = *writer->viewContext();
    for (int i = 0; i < kTransactions; ++i) {
        auto list = store::TK_Category::insertNew(view);
        list->setCategoryID("list-" + std::to_string(i));
        list->setTitle("List " + std::to_string(i));
        if (!view.save())
            throw std::runtime_error("cannot write the pending transactions");
    }
}

void passOver1000(benchmark::State& state, bool merge) {
    platform::MainQueue::shared().claimCurrentThread();
    for (auto _ : state) {
        state.PauseTiming();
        // The lists are live before the other connection writes, as in the form.
        const testing::TempDir folder;
        auto live = std::make_unique<bench::LiveLists>(folder.path());
        writeLists(folder.path());
        auto processor = cloud::PersistentHistoryProcessor::make(*live->data, {.program = "bench"});
        state.ResumeTiming();
        auto pass = processor->process();
        if (!pass || pass->transactions != kTransactions)
            state.SkipWithError("the pass did not read every transaction");
        if (merge)
            platform::MainQueue::shared().pump();
        state.PauseTiming();
        if (!merge)
            platform::MainQueue::shared().pump();
        if (live->lists->categories().value().size() != kTransactions)
            state.SkipWithError("the live lists did not follow");
        processor.reset();
        live.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kTransactions);
}

void BM_HistoryPassOver1000Transactions(benchmark::State& state) {
    passOver1000(state, false);
}
void BM_HistoryPassAndMergeOver1000Transactions(benchmark::State& state) {
    passOver1000(state, true);
}

} // namespace

BENCHMARK(BM_HistoryPassOver1000Transactions)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_HistoryPassAndMergeOver1000Transactions)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_MAIN();
