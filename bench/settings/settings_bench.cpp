// Settings through the JSON-file suites: a getter while the file is
// unchanged (one stat() and a cached lookup), and a setter, which is a
// durable write (lock, temporary file, fsync, rename, fsync of the folder).
#include "platform/preferences/file_preferences_suite.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/customization_manager.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

using namespace tasket;
using namespace tasket::settings;

namespace {

struct FileSettings {
    testing::TempDir folder; // the suites' folder, removed afterwards
    CustomizationManager manager{std::make_shared<platform::FilePreferencesSuite>(
                                     folder.path(), std::string(keys::kAppGroupSuite)),
                                 std::make_shared<platform::FilePreferencesSuite>(
                                     folder.path(), std::string(keys::kStandardSuite))};

    // A suite as full as a real one: every setting stored.
    explicit FileSettings(bool migrated) {
        if (migrated)
            (void)manager.migrateUserDefaultsToAppGroup();
        std::apply(
            [&](const auto&... setting) {
                (manager.setValue(setting, manager.value(setting)), ...);
            },
            catalog::kAllSettings);
    }
};

void BM_GetterUnchangedFile(benchmark::State& state) {
    FileSettings settings(true);
    settings.manager.setIsAssistEnabled(true);
    for (auto _ : state)
        benchmark::DoNotOptimize(settings.manager.isAssistEnabled());
}
BENCHMARK(BM_GetterUnchangedFile);

void BM_EnumerationGetterUnchangedFile(benchmark::State& state) {
    FileSettings settings(true);
    for (auto _ : state)
        benchmark::DoNotOptimize(settings.manager.remindersDatabaseType());
}
BENCHMARK(BM_EnumerationGetterUnchangedFile);

// Before the move a predating setting reads the flag from the group suite
// and the value from the standard suite: two files checked per read.
void BM_PredatingGetterBeforeMigration(benchmark::State& state) {
    FileSettings settings(false);
    for (auto _ : state)
        benchmark::DoNotOptimize(settings.manager.allDayReminderTime());
}
BENCHMARK(BM_PredatingGetterBeforeMigration);

void BM_GetterInMemory(benchmark::State& state) {
    CustomizationManager manager(std::make_shared<platform::InMemoryPreferencesSuite>("group"),
                                 std::make_shared<platform::InMemoryPreferencesSuite>("standard"));
    manager.setIsAssistEnabled(true);
    for (auto _ : state)
        benchmark::DoNotOptimize(manager.isAssistEnabled());
}
BENCHMARK(BM_GetterInMemory);

void BM_SetterDurableWrite(benchmark::State& state) {
    FileSettings settings(true);
    bool on = false;
    for (auto _ : state) {
        on = !on;
        settings.manager.setIsAssistEnabled(on);
    }
}
BENCHMARK(BM_SetterDurableWrite)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
