// Crash consistency, measured: rounds in which two writer processes, one
// saving tasks through the engine and one writing the settings suite, are
// killed with SIGKILL at random moments. After every round the store passes
// PRAGMA integrity_check, holds every save its writer acknowledged and no
// part of a save (each save writes three tasks), and the settings document
// parses and holds every acknowledged write.
//
//   crash_soak [--rounds N] [--seed S] [--max-delay-ms D] [--keep DIR]
//
// The writers are this program again (crash_soak store-writer DIR FIRST and
// crash_soak settings-writer DIR); a writer prints a number only after the
// write it stands for returned. A fresh store and settings folder are used
// every 100 rounds so that checking stays cheap. Prints its figures and one
// verdict line; exits 0 only when every round passed.
#include "objectstore/object_context.h"
#include "platform/preferences/file_preferences_suite.h"
#include "self_child.h"
#include "store/tk_data_model.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using namespace tasket;

namespace {

constexpr int kTasksPerSave = 3;
constexpr int kSlots = 64;
constexpr int kRoundsPerFolder = 100;
constexpr const char* kSuiteName = "soak";

// ---- The writers ---------------------------------------------------------------

int storeWriter(const fs::path& folder, long first) {
    auto store = objectstore::PersistentStore::open(folder / "TK_Data.sqlite", store::tkDataModel(),
                                                    objectstore::StoreOptions{true, false});
    if (!store) {
        std::fprintf(stderr, "store writer: %s\n", store.error().message.c_str());
        return 1;
    }
    auto context =
        objectstore::ObjectContext::make(*store, objectstore::ConcurrencyType::privateQueue);
    int status = 0;
    context->performAndWait([&] {
        for (long n = first;; ++n) {
            for (int k = 0; k < kTasksPerSave; ++k) {
                auto task = context->insertNewObject("TK_Task");
                task->setValue("title", std::to_string(n));
                task->setValue("taskID", fmt::format("{}.{}", n, k));
            }
            if (auto saved = context->save(); !saved) {
                std::fprintf(stderr, "store writer: %s\n", saved.error().message.c_str());
                status = 1;
                return;
            }
            std::printf("%ld\n", n);
            std::fflush(stdout);
            context->reset();
        }
    });
    return status;
}

int settingsWriter(const fs::path& folder) {
    platform::FilePreferencesSuite suite(folder, kSuiteName);
    std::int64_t n = suite.integerValue("counter").value_or(0);
    for (;;) {
        ++n;
        auto written = suite.update([n](platform::PreferenceDictionary& values) {
            values["counter"] = n;
            values[fmt::format("slot.{}", n % kSlots)] = n;
        });
        if (!written) {
            std::fprintf(stderr, "settings writer: %s\n", written.error().message.c_str());
            return 1;
        }
        std::printf("%lld\n", static_cast<long long>(n));
        std::fflush(stdout);
    }
}

// ---- The driver ----------------------------------------------------------------

// Kills the writer and returns every number it acknowledged.
std::vector<long> killAndCollect(const soak::Child& writer) {
    kill(writer.pid, SIGKILL);
    const std::string text = soak::reap(writer);
    std::vector<long> numbers;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        numbers.push_back(std::stol(text.substr(start, end - start)));
    return numbers; // a line cut short by the kill has no newline and is not counted
}

// Read-write: after a crash, the first connection recovers the write-ahead
// log, which a read-only one may not do.
class Database {
  public:
    explicit Database(const fs::path& path) {
        if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
            m_error = sqlite3_errmsg(m_db);
    }
    ~Database() { sqlite3_close(m_db); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& error() const { return m_error; }
    /// The first column of every row of `sql`, as text.
    std::vector<std::string> column(const std::string& sql) {
        std::vector<std::string> out;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            m_error = sqlite3_errmsg(m_db);
            return out;
        }
        while (sqlite3_step(statement) == SQLITE_ROW) {
            const auto* text = sqlite3_column_text(statement, 0);
            out.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
        }
        sqlite3_finalize(statement);
        return out;
    }

  private:
    sqlite3* m_db = nullptr;
    std::string m_error;
};

struct Totals {
    long rounds = 0;
    long failedRounds = 0;
    long acknowledgedSaves = 0;
    long committedUnacknowledged = 0; // committed before the kill, not yet reported
    long acknowledgedSettings = 0;
};

// Checks the store after a round; returns what is wrong, empty when nothing.
std::string checkStore(const fs::path& folder, const std::vector<long>& acknowledged, long& newest,
                       Totals& totals) {
    const fs::path file = folder / "TK_Data.sqlite";
    if (!fs::exists(file))
        return acknowledged.empty() ? "" : "the store file is missing";
    Database db(file);
    if (!db.error().empty())
        return "cannot open the store: " + db.error();
    const auto integrity = db.column("PRAGMA integrity_check");
    if (integrity.size() != 1 || integrity[0] != "ok")
        return "integrity_check: " + (integrity.empty() ? db.error() : integrity[0]);
    const auto partial = db.column(fmt::format(
        "SELECT title FROM TK_Task GROUP BY title HAVING count(*) != {}", kTasksPerSave));
    if (!partial.empty())
        return "save " + partial[0] + " is only partly there";
    for (long n : acknowledged) {
        const auto found = db.column(fmt::format(
            "SELECT count(*) FROM TK_Task WHERE taskID IN ('{0}.0', '{0}.1', '{0}.2')", n));
        if (found.empty() || found[0] != std::to_string(kTasksPerSave))
            return fmt::format("acknowledged save {} is missing", n);
    }
    const auto max = db.column("SELECT coalesce(max(CAST(title AS INTEGER)), 0) FROM TK_Task");
    const long stored = max.empty() ? 0 : std::stol(max[0]);
    const long lastAcknowledged = acknowledged.empty() ? newest : acknowledged.back();
    totals.committedUnacknowledged += stored - lastAcknowledged;
    newest = stored;
    return {};
}

std::string checkSettings(const fs::path& folder, const std::vector<long>& acknowledged) {
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().find(".corrupt-") != std::string::npos)
            return "the settings document was found corrupt and moved aside";
    if (acknowledged.empty())
        return {};
    platform::FilePreferencesSuite suite(folder, kSuiteName);
    const auto counter = suite.integerValue("counter");
    if (!counter)
        return "the settings document has no counter";
    if (*counter < acknowledged.back())
        return fmt::format("counter {} is older than the acknowledged {}", *counter,
                           acknowledged.back());
    const std::size_t from = acknowledged.size() > kSlots ? acknowledged.size() - kSlots : 0;
    for (std::size_t i = from; i < acknowledged.size(); ++i) {
        const long n = acknowledged[i];
        const auto slot = suite.integerValue(fmt::format("slot.{}", n % kSlots));
        if (!slot || *slot < n)
            return fmt::format("acknowledged settings write {} is missing", n);
    }
    return {};
}

int drive(long rounds, unsigned seed, int maxDelayMs, const fs::path& root) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> delay(0, maxDelayMs * 1000);
    Totals totals;
    long newest = 0;
    fs::path folder;
    const auto started = std::chrono::steady_clock::now();
    for (long round = 0; round < rounds; ++round) {
        if (round % kRoundsPerFolder == 0) {
            folder = root / fmt::format("r{}", round / kRoundsPerFolder);
            fs::create_directories(folder);
            newest = 0;
        }
        soak::Child store = soak::spawnSelf(
            {"crash_soak", "store-writer", folder.string(), std::to_string(newest + 1)});
        soak::Child settings = soak::spawnSelf({"crash_soak", "settings-writer", folder.string()});
        const int first = delay(random), second = delay(random);
        std::this_thread::sleep_for(std::chrono::microseconds(std::min(first, second)));
        auto earlier = killAndCollect(first <= second ? store : settings);
        std::this_thread::sleep_for(std::chrono::microseconds(std::abs(first - second)));
        auto later = killAndCollect(first <= second ? settings : store);
        const auto& savesAcknowledged = first <= second ? earlier : later;
        const auto& settingsAcknowledged = first <= second ? later : earlier;

        ++totals.rounds;
        totals.acknowledgedSaves += static_cast<long>(savesAcknowledged.size());
        totals.acknowledgedSettings += static_cast<long>(settingsAcknowledged.size());
        std::string problem = checkStore(folder, savesAcknowledged, newest, totals);
        if (problem.empty())
            problem = checkSettings(folder, settingsAcknowledged);
        if (!problem.empty()) {
            ++totals.failedRounds;
            std::fprintf(stderr, "round %ld (%s): %s\n", round, folder.c_str(), problem.c_str());
        }
        if (isatty(STDERR_FILENO) && (round + 1) % 100 == 0)
            std::fprintf(stderr, "\r%ld/%ld rounds", round + 1, rounds);
    }
    if (isatty(STDERR_FILENO))
        std::fprintf(stderr, "\n");
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    fmt::print("rounds                        {}\n", totals.rounds);
    fmt::print("seed                          {}\n", seed);
    fmt::print("acknowledged saves            {} ({} tasks each)\n", totals.acknowledgedSaves,
               kTasksPerSave);
    fmt::print("saves committed, unreported   {}\n", totals.committedUnacknowledged);
    fmt::print("acknowledged settings writes  {}\n", totals.acknowledgedSettings);
    fmt::print("failed rounds                 {}\n", totals.failedRounds);
    fmt::print("wall time                     {:.1f} s\n", seconds);
    fmt::print("crash consistency: {} ({} of {} rounds consistent)\n",
               totals.failedRounds == 0 ? "PASS" : "FAIL", totals.rounds - totals.failedRounds,
               totals.rounds);
    return totals.failedRounds == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 3 && args[0] == "store-writer")
        return storeWriter(args[1], std::stol(args[2]));
    if (args.size() == 2 && args[0] == "settings-writer")
        return settingsWriter(args[1]);

    long rounds = 200;
    unsigned seed = std::random_device{}();
    int maxDelayMs = 60;
    std::string keep;
    CLI::App app{"Kills two writers (engine saves, settings writes) at random moments and checks "
                 "that nothing acknowledged is lost."};
    app.add_option("--rounds", rounds, "How many rounds")->capture_default_str();
    app.add_option("--seed", seed, "Seed of the random kill times");
    app.add_option("--max-delay-ms", maxDelayMs, "Latest kill after the start, in milliseconds")
        ->capture_default_str();
    app.add_option("--keep", keep,
                   "Work in DIR and leave it (default: a removed temporary folder)");
    CLI11_PARSE(app, argc, argv);
    fs::path root = keep;
    if (root.empty()) {
        std::string pattern = (fs::temp_directory_path() / "tasket-crash-soak-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            return 1;
        root = pattern;
    }
    const int status = drive(rounds, seed, maxDelayMs, root);
    if (keep.empty())
        fs::remove_all(root);
    return status;
}
