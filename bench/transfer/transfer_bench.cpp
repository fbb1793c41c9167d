// Encode and decode throughput of task records, and simdjson's own parse of
// the same bytes as the bar: decoding should reach at least half its rate.
// Records are varied (titles, links, dates, tags), about as a real list holds.
#include "transfer/record_codec.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

using namespace tasket::transfer;

std::vector<TK_SharedTask> sampleTasks() {
    std::vector<TK_SharedTask> tasks;
    for (int i = 0; i < 1000; ++i) {
        TK_SharedTask task{.id = fmt::format("8E3C1A42-5B6D-4F7E-9A1B-{:012X}", i)};
        task.title = fmt::format("Read https://example.org/article/{} — café", i);
        task.notes = i % 3 ? std::nullopt : std::optional<std::string>("a note\nwith two lines");
        task.isCompleted = i % 5 == 0;
        task.creationDate = tasket::platform::Date{700000000.0 + i * 37.25};
        if (i % 3 == 0) {
            task.dueDateAndTime = tasket::platform::Date{700100000.0 + i * 3600};
            task.dueDate = tasket::platform::Date{700099200.0 + (i / 24) * 86400};
        }
        task.category = fmt::format("CATEGORY-{}", i % 50);
        task.tags = Strings{};
        for (int t = 0; t < i % 4; ++t)
            task.tags->push_back(fmt::format("TAG-{}", (i + t) % 30));
        task.subtasks = Strings{};
        task.attachments = Strings{};
        task.values = Strings{};
        task.sections = Strings{};
        task.repeatFrequency = 1;
        tasks.push_back(std::move(task));
    }
    return tasks;
}

std::vector<std::string> encoded(const std::vector<TK_SharedTask>& tasks) {
    std::vector<std::string> out;
    for (const auto& task : tasks)
        out.push_back(encode(task).value());
    return out;
}

std::size_t totalBytes(const std::vector<std::string>& texts) {
    std::size_t bytes = 0;
    for (const auto& text : texts)
        bytes += text.size();
    return bytes;
}

void BM_EncodeTask(benchmark::State& state) {
    const auto tasks = sampleTasks();
    const auto bytes = totalBytes(encoded(tasks));
    for (auto _ : state)
        for (const auto& task : tasks)
            benchmark::DoNotOptimize(encode(task));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * tasks.size()));
}
BENCHMARK(BM_EncodeTask);

void BM_DecodeTask(benchmark::State& state) {
    const auto texts = encoded(sampleTasks());
    for (auto _ : state)
        for (const auto& text : texts)
            benchmark::DoNotOptimize(decode<TK_SharedTask>(text));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * totalBytes(texts)));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * texts.size()));
}
BENCHMARK(BM_DecodeTask);

// The bar: simdjson's DOM parser on the same bytes, from the same unpadded
// strings (so it copies them into its padded buffer as decode does).
void BM_SimdjsonParseTask(benchmark::State& state) {
    const auto texts = encoded(sampleTasks());
    simdjson::dom::parser parser;
    for (auto _ : state)
        for (const auto& text : texts)
            benchmark::DoNotOptimize(parser.parse(text.data(), text.size(), true));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * totalBytes(texts)));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * texts.size()));
}
BENCHMARK(BM_SimdjsonParseTask);

// The two in turn, round after round, so that a busy machine slows both
// alike: the median of decode's rate over simdjson's (the goal: 0.5 or more).
void BM_DecodeOverSimdjsonRate(benchmark::State& state) {
    const auto texts = encoded(sampleTasks());
    simdjson::dom::parser parser;
    using Clock = std::chrono::steady_clock;
    const auto timed = [](auto&& work) {
        const auto start = Clock::now();
        work();
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    std::vector<double> ratios;
    for (auto _ : state) {
        const double parse = timed([&] {
            for (const auto& text : texts)
                benchmark::DoNotOptimize(parser.parse(text.data(), text.size(), true));
        });
        const double decoding = timed([&] {
            for (const auto& text : texts)
                benchmark::DoNotOptimize(decode<TK_SharedTask>(text));
        });
        ratios.push_back(parse / decoding);
    }
    std::ranges::nth_element(ratios,
                             ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2));
    state.counters["rate_ratio"] = ratios[ratios.size() / 2];
}
BENCHMARK(BM_DecodeOverSimdjsonRate);

} // namespace

BENCHMARK_MAIN();
