// 10,000 tasks through the cloud database on a real server: alice uploads
// them in batches of 500 (compare-and-set, row-level security, push
// triggers and all), bob fetches them through a share; the baseline is one
// COPY of the same rows into the same table by the superuser (no row-level
// security, nothing compared). Wall-clock time, since the work is the
// server's; items per second are records.
#include "platform/cloud/postgres_cloud_database.h"
#include "platform/json_writer.h"
#include "support/postgres_server.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>
#include <stdexcept>

using namespace tasket;
using namespace tasket::platform;

namespace {

constexpr int kTasks = 10'000;
constexpr std::size_t kBatch = 500;

testing::PostgresServer& server() {
    static testing::PostgresServer running;
    return running;
}

std::unique_ptr<PostgresCloudContainer> account(const std::string& role) {
    auto container = PostgresCloudContainer::open({.connection = server().connectionFor(role)});
    if (!container || !(*container)->setUpServer())
        throw std::runtime_error("cannot reach the benchmark's server");
    return std::move(*container);
}

// A task as an upload writes it: the store's keys, relationships as name lists.
CloudRecord task(const CloudZoneID& zone, int i) {
    CloudRecord record{"TK_Task", {fmt::format("TASK-{:05}", i), zone}, {}, {}, {}, {}};
    auto& f = record.fields;
    f["title"] = fmt::format("Task number {} with a title of usual length", i);
    f["note"] = std::string("A note of a line or two, as people write them.");
    f["url"] = CloudValue{};
    f["color"] = std::int64_t{i % 12};
    f["dueDate"] = Date{786'000'000.0 + i * 3600.0};
    f["dueDateAndTime"] = Date{786'000'000.0 + i * 3600.0 + 1800.0};
    f["startDate"] = CloudValue{};
    for (const char* flag :
         {"isAllDay", "isRemindEnabled", "doesRemindRepeat", "isPinned", "isExpanded", "isArchived",
          "isShared", "isSample", "isStartDateAllDay", "isStartDateRemindEnabled",
          "isRecurringSinceLastCompletion", "isIgnoringListActions"})
        f[flag] = (i % 3) == 0;
    for (const char* index : {"smartCategorySortIndex", "categorySortIndex", "tagSortIndex",
                              "prioritySortIndex", "statusSortIndex", "valueSortIndex"})
        f[index] = double(i) + 0.5;
    f["repeatFrequency"] = std::int64_t{1};
    f["repeatIntervalType"] = std::int64_t{i % 5};
    f["reminderInterruptionLevel"] = std::int64_t{1};
    f["whenCreated"] = Date{780'000'000.0 + i};
    f["numberOfModifications"] = std::int64_t{1 + i % 7};
    f["category"] = std::string("LIST-0001");
    f["tags"] = CloudNameList{"TAG-1", "TAG-2"};
    f["attachments"] = CloudNameList{};
    f["values"] = CloudNameList{};
    f["boardSections"] = CloudNameList{};
    return record;
}

struct Fixture {
    std::unique_ptr<PostgresCloudContainer> alice = account("alice");
    std::unique_ptr<PostgresCloudContainer> bob = account("bob");
    int zones = 0;

    CloudZoneID sharedZone() {
        const CloudZoneID zone{fmt::format("Zone.{}", ++zones), "alice"};
        if (!alice->privateDatabase().modifyZones({zone}, {}) ||
            !alice->saveShare({zone, "bob", CloudSharePermission::readWrite}))
            throw std::runtime_error("cannot make the zone");
        return zone;
    }
    void upload(const CloudZoneID& zone) {
        std::vector<CloudRecord> batch;
        for (int i = 0; i < kTasks; ++i) {
            batch.push_back(task(zone, i));
            if (batch.size() == kBatch || i + 1 == kTasks) {
                if (!alice->privateDatabase().modifyRecords(batch, {}))
                    throw std::runtime_error("an upload failed");
                batch.clear();
            }
        }
    }
};

Fixture& fixture() {
    static Fixture made;
    return made;
}

void uploadTasks(benchmark::State& state) {
    auto& f = fixture();
    for (auto _ : state) {
        state.PauseTiming();
        const auto zone = f.sharedZone();
        state.ResumeTiming();
        f.upload(zone);
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}

void fetchOnSecondAccount(benchmark::State& state) {
    auto& f = fixture();
    const auto zone = f.sharedZone();
    f.upload(zone);
    for (auto _ : state) {
        const auto fetched = f.bob->sharedDatabase().queryRecords({"TK_Task", zone, 0});
        if (!fetched || fetched->size() != kTasks)
            state.SkipWithError("bob did not get every task");
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}

// COPY text form: backslashes doubled; JSON holds no raw tab or newline.
std::string copyRows(const CloudZoneID& zone) {
    std::string rows;
    for (int i = 0; i < kTasks; ++i) {
        const auto record = task(zone, i);
        JsonWriter json(JsonWriter::Form::record);
        json.beginObject();
        for (const auto& [key, value] : record.fields) {
            json.key(key);
            std::visit(
                [&](const auto& v) {
                    using V = std::decay_t<decltype(v)>;
                    if constexpr (std::is_same_v<V, bool>)
                        json.boolean(v);
                    else if constexpr (std::is_same_v<V, std::int64_t>)
                        json.integer(v);
                    else if constexpr (std::is_same_v<V, double>)
                        json.beginObject().key("double").number(v).endObject();
                    else if constexpr (std::is_same_v<V, std::string>)
                        json.string(v);
                    else if constexpr (std::is_same_v<V, Date>)
                        json.beginObject().key("date").number(v.secondsSinceReference).endObject();
                    else if constexpr (std::is_same_v<V, CloudNameList>) {
                        json.beginArray();
                        for (const auto& name : v)
                            json.string(name);
                        json.endArray();
                    } else
                        json.null();
                },
                value);
        }
        std::string fields = json.endObject().finish().value();
        std::string escaped;
        for (const char c : fields) {
            if (c == '\\')
                escaped += '\\';
            escaped += c;
        }
        rows +=
            fmt::format("alice\t{}\t{}\tTK_Task\t{}\t\\N\n", zone.name, record.id.name, escaped);
    }
    return rows;
}

void copyBaseline(benchmark::State& state) {
    auto& f = fixture();
    auto admin = PostgresConnection::open(server().adminConnection() + " dbname=tasket");
    if (!admin)
        throw std::runtime_error(admin.error().message);
    for (auto _ : state) {
        state.PauseTiming();
        const auto zone = f.sharedZone();
        const std::string rows = copyRows(zone);
        state.ResumeTiming();
        if (auto copied = admin->copyIn(
                "COPY cloud.records (owner, zone, name, type, fields, parent) FROM STDIN", rows);
            !copied) {
            state.SkipWithError(copied.error().message.c_str());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}

BENCHMARK(uploadTasks)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(fetchOnSecondAccount)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(copyBaseline)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace

BENCHMARK_MAIN();
