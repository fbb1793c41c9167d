// Contention, measured: two processes increment counters on the same
// objects of one store for a while, under each merge policy in turn. Each
// process owns one counter property of every object (the first the item's
// score, the second its due date's seconds), reads it fresh, adds one and
// saves, and counts the increments the store kept.
//
// What must hold, for every policy: no error other than a refused conflict
// reaches a writer (a busy store is the engine's to wait out), and the store
// passes integrity_check. Under `error` a refused save is retried, and
// under `error`, `mergeByPropertyObjectTrump` and `rollback` every kept
// increment is in the final store: a counter equals its owner's count.
// `overwrite` writes every property of the saving object, so it may put
// back the other process's older counter; its losses are reported, not
// failed, since that is what the policy asks for.
//
//   contention_soak [--seconds-per-policy S] [--objects N] [--seed S]
#include "objectstore/object_context.h"
#include "self_child.h"
#include "support/test_model.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace tasket;
using namespace tasket::objectstore;

namespace {

struct PolicyName {
    MergePolicy policy;
    const char* name;
};
constexpr PolicyName kPolicies[] = {
    {MergePolicy::error, "error"},
    {MergePolicy::mergeByPropertyObjectTrump, "mergeByPropertyObjectTrump"},
    {MergePolicy::overwrite, "overwrite"},
    {MergePolicy::rollback, "rollback"},
};

double counterOf(const ObjectPtr& item, int role) {
    if (role == 0) {
        const auto* score = std::get_if<double>(&item->value("score"));
        return score ? *score : 0.0;
    }
    const auto* due = std::get_if<Date>(&item->value("due"));
    return due ? due->secondsSinceReference : 0.0;
}

void setCounter(const ObjectPtr& item, int role, double value) {
    if (role == 0)
        item->setValue("score", value);
    else
        item->setValue("due", Date{value});
}

Result<std::vector<ObjectPtr>> items(ObjectContext& context) {
    FetchRequest request("Item");
    request.sortDescriptors = {SortDescriptor{"title", true}};
    return context.fetch(request);
}

std::shared_ptr<ObjectContext> openContext(const fs::path& file, MergePolicy policy) {
    auto store = PersistentStore::open(file, testing::makeTestModel(), StoreOptions{true, false});
    if (!store) {
        std::fprintf(stderr, "%s\n", store.error().message.c_str());
        std::exit(1);
    }
    auto context = ObjectContext::make(*store, ConcurrencyType::privateQueue);
    context->setMergePolicy(policy);
    return context;
}

// ---- A writer process ------------------------------------------------------------

// Prints "kept I N" for every object and "saves S conflicts C errors E".
int writer(const fs::path& file, MergePolicy policy, int role, double seconds, unsigned seed) {
    auto context = openContext(file, policy);
    std::mt19937 random(seed);
    long saves = 0, conflicts = 0, errors = 0;
    std::vector<long> kept;
    context->performAndWait([&] {
        auto all = items(*context);
        if (!all) {
            ++errors;
            return;
        }
        std::vector<ObjectID> ids;
        for (const auto& item : *all)
            ids.push_back(item->objectID());
        kept.assign(ids.size(), 0);
        std::uniform_int_distribution<std::size_t> pick(0, ids.size() - 1);
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (std::chrono::steady_clock::now() < end) {
            const std::size_t i = pick(random);
            for (;;) {
                auto item = context->existingObject(ids[i]);
                if (!item) {
                    ++errors;
                    std::fprintf(stderr, "writer %d: %s\n", role, item.error().message.c_str());
                    return;
                }
                context->refresh(*item, false);
                const double wanted = counterOf(*item, role) + 1;
                setCounter(*item, role, wanted);
                auto saved = context->save();
                if (!saved && saved.error().code == platform::Errc::conflict &&
                    policy == MergePolicy::error) {
                    ++conflicts;
                    context->rollback();
                    continue;
                }
                if (!saved) {
                    ++errors;
                    std::fprintf(stderr, "writer %d: %s\n", role, saved.error().message.c_str());
                    context->rollback();
                    break;
                }
                ++saves;
                // Read back: the store may have kept another value (store trumps).
                context->refresh(*item, false);
                if (counterOf(*item, role) == wanted)
                    ++kept[i];
                break;
            }
        }
    });
    for (std::size_t i = 0; i < kept.size(); ++i)
        std::printf("kept %zu %ld\n", i, kept[i]);
    std::printf("saves %ld conflicts %ld errors %ld\n", saves, conflicts, errors);
    return 0;
}

// ---- The driver ------------------------------------------------------------------

struct Report {
    std::vector<long> kept;
    long saves = 0, conflicts = 0, errors = 0;
};

Report parse(const std::string& text) {
    Report report;
    std::istringstream lines(text);
    for (std::string word; lines >> word;) {
        if (word == "kept") {
            std::size_t i = 0;
            long n = 0;
            lines >> i >> n;
            if (report.kept.size() <= i)
                report.kept.resize(i + 1);
            report.kept[i] = n;
        } else if (word == "saves") {
            std::string skip;
            lines >> report.saves >> skip >> report.conflicts >> skip >> report.errors;
        }
    }
    return report;
}

bool integrityOk(const fs::path& file) {
    sqlite3* db = nullptr;
    bool ok = false;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) ==
                SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW)
            ok = std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))) ==
                 "ok";
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return ok;
}

// Runs one policy; returns whether it held.
bool runPolicy(const PolicyName& policy, const fs::path& folder, double seconds, int objects,
               unsigned seed) {
    const fs::path file = folder / fmt::format("{}.sqlite", policy.name);
    {
        auto context = openContext(file, policy.policy);
        context->performAndWait([&] {
            for (int i = 0; i < objects; ++i)
                context->insertNewObject("Item")->setValue("title", fmt::format("{:04}", i));
            if (auto saved = context->save(); !saved)
                std::fprintf(stderr, "%s\n", saved.error().message.c_str());
        });
    }
    const auto policyIndex = std::to_string(&policy - kPolicies);
    std::vector<soak::Child> children;
    for (int role = 0; role < 2; ++role)
        children.push_back(soak::spawnSelf({"contention_soak", "writer", file.string(), policyIndex,
                                            std::to_string(role), std::to_string(seconds),
                                            std::to_string(seed + static_cast<unsigned>(role))}));
    Report reports[2] = {parse(soak::reap(children[0])), parse(soak::reap(children[1]))};

    long lost = 0, errors = reports[0].errors + reports[1].errors;
    auto context = openContext(file, policy.policy);
    context->performAndWait([&] {
        auto all = items(*context);
        if (!all) {
            ++errors;
            return;
        }
        for (int role = 0; role < 2; ++role)
            for (std::size_t i = 0; i < all->size(); ++i) {
                const long stored = static_cast<long>(counterOf((*all)[i], role));
                const long count = i < reports[role].kept.size() ? reports[role].kept[i] : 0;
                lost += std::labs(count - stored);
            }
    });
    const bool integrity = integrityOk(file);
    const bool lossAllowed = policy.policy == MergePolicy::overwrite;
    const bool held = errors == 0 && integrity && (lossAllowed || lost == 0);
    fmt::print("{:<28} saves {:>8} + {:<8} conflicts retried {:>7}  errors {}  lost {}{}  "
               "integrity {}  {}\n",
               policy.name, reports[0].saves, reports[1].saves,
               reports[0].conflicts + reports[1].conflicts, errors, lost,
               lossAllowed ? " (the policy's own)" : "", integrity ? "ok" : "FAILED",
               held ? "held" : "FAILED");
    return held;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 6 && args[0] == "writer")
        return writer(args[1], kPolicies[std::stoi(args[2])].policy, std::stoi(args[3]),
                      std::stod(args[4]), static_cast<unsigned>(std::stoul(args[5])));

    double seconds = 900;
    int objects = 16;
    unsigned seed = std::random_device{}();
    CLI::App app{"Two processes write the same objects under each merge policy; no error may "
                 "reach them and no kept update may be lost."};
    app.add_option("--seconds-per-policy", seconds, "How long each policy runs")
        ->capture_default_str();
    app.add_option("--objects", objects, "How many objects both write")->capture_default_str();
    app.add_option("--seed", seed, "Seed of the writers' choices");
    CLI11_PARSE(app, argc, argv);
    std::string pattern = (fs::temp_directory_path() / "tasket-contention-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        return 1;
    const fs::path folder = pattern;
    fmt::print("two writers, {} objects, {:g} s per policy, seed {}\n", objects, seconds, seed);
    bool held = true;
    for (const auto& policy : kPolicies)
        held = runPolicy(policy, folder, seconds, objects, seed) && held;
    fs::remove_all(folder);
    fmt::print("contention: {}\n",
               held ? "PASS (no error reached a writer, no kept update lost)" : "FAIL");
    return held ? 0 : 1;
}
