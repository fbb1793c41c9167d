// The change-set oracle: random transactions (inserts, attribute and
// relationship changes, deletions with their cascade and nullify rules)
// saved through the engine, each checked against a plain model of the
// store kept beside it.
//
//   changeset_soak [--transactions N] [--seed S] [--keep DIR]
//
// After every save:
//   - the did-save change set names exactly the objects the model says were
//     inserted and deleted; every object whose properties differ is
//     updated, and each updated object's changed properties lie between
//     those that differ and those the transaction touched;
//   - persistent history holds one transaction with the same change set;
//   - a second context that merges the change set reads every touched
//     object as the model has it (every 100 transactions: every object);
//   - every 1,000 transactions a fresh context reads the whole store back.
// The run is deterministic for a seed: a disagreement is printed with the
// seed and transaction that reproduce it, and with --keep the store is
// copied there. Prints its figures and one verdict line.
#include "objectstore/object_context.h"
#include "platform/notification_center.h"
#include "support/test_model.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace tasket;
using namespace tasket::objectstore;

namespace {

enum Entity { kList, kItem, kLabel };
constexpr const char* kEntityNames[] = {"List", "Item", "Label"};
constexpr std::size_t kMaxObjects = 300;

using Oid = int;                                 // the model's own name for an object; 0 is "none"
using View = std::map<std::string, std::string>; // property -> canonical text

// ---- The model ---------------------------------------------------------------------

struct Object {
    Entity entity;
    std::map<std::string, Value> attributes;
    Oid list = 0;         // Item.list
    std::set<Oid> labels; // Item.labels
};

std::string text(const Value& v) {
    return std::visit(
        [](const auto& x) -> std::string {
            using T = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<T, std::monostate>)
                return "nil";
            else if constexpr (std::is_same_v<T, bool>)
                return x ? "true" : "false";
            else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, double>)
                return fmt::format("{}", x);
            else if constexpr (std::is_same_v<T, std::string>)
                return '"' + x + '"';
            else if constexpr (std::is_same_v<T, Date>)
                return fmt::format("@{}", x.secondsSinceReference);
            else if constexpr (std::is_same_v<T, platform::Uuid>)
                return x.toString();
            else
                return fmt::format("bytes[{}]", fmt::join(x, ","));
        },
        v);
}

std::string oids(const std::set<Oid>& set) {
    return fmt::format("{}", fmt::join(set, ","));
}

class Model {
  public:
    std::map<Oid, Object> objects;

    // Every property of `oid` as text, relationships by the model's names.
    View view(Oid oid) const {
        const Object& o = objects.at(oid);
        View v;
        for (const auto& [name, value] : o.attributes)
            v[name] = text(value);
        switch (o.entity) {
        case kList: {
            std::set<Oid> items;
            for (const auto& [id, other] : objects)
                if (other.entity == kItem && other.list == oid)
                    items.insert(id);
            v["items"] = oids(items);
            v["owner"] = "0";
            break;
        }
        case kItem:
            v["list"] = std::to_string(o.list);
            v["labels"] = oids(o.labels);
            v["note"] = "0";
            break;
        case kLabel: {
            std::set<Oid> items;
            for (const auto& [id, other] : objects)
                if (other.entity == kItem && other.labels.count(oid))
                    items.insert(id);
            v["items"] = oids(items);
            break;
        }
        }
        return v;
    }
};

// ---- One run -----------------------------------------------------------------------

struct Figures {
    long transactions = 0, operations = 0, inserted = 0, updated = 0, deleted = 0;
    long mergedChecks = 0, fullChecks = 0;
};

class Run {
  public:
    Run(const fs::path& file, std::uint64_t seed) : m_random(seed), m_file(file) {
        auto store =
            PersistentStore::open(file, testing::makeTestModel(), StoreOptions{true, false});
        if (!store)
            throw std::runtime_error(store.error().message);
        m_store = *store;
        m_worker = ObjectContext::make(m_store, ConcurrencyType::privateQueue);
        m_observer = ObjectContext::make(m_store, ConcurrencyType::privateQueue);
        m_observation = platform::NotificationCenter::defaultCenter().addObserver(
            kContextDidSaveNotification, m_worker.get(),
            [this](const ChangeSet& changes, const void*) { m_saved = changes; });
    }

    // Runs one transaction; returns the first disagreement, or "".
    std::string step(long number) {
        m_touched.clear();
        m_newThisStep.clear();
        const Model before = m_model;
        std::string problem;
        m_worker->performAndWait([&] {
            const int operations = std::uniform_int_distribution<int>(1, 6)(m_random);
            for (int k = 0; k < operations; ++k)
                operate();
            m_figures.operations += operations;
            m_saved = ChangeSet{};
            auto saved = m_worker->save();
            if (!saved)
                problem = "the save failed: " + saved.error().message;
        });
        if (!problem.empty())
            return problem;
        ++m_figures.transactions;
        for (Oid oid : m_newThisStep)
            if (m_model.objects.count(oid))
                m_ids[m_pointers.at(oid)->objectID()] = oid;
        if (auto p = checkChangeSet(before); !p.empty())
            return p;
        if (auto p = checkHistory(); !p.empty())
            return p;
        if (auto p = checkMerged(number % 100 == 0); !p.empty())
            return p;
        if (number % 1000 == 0) {
            ++m_figures.fullChecks;
            return checkStore();
        }
        return {};
    }

    const Figures& figures() const { return m_figures; }

  private:
    // ---- Random operations, applied to the engine and the model alike ----

    template <class T> T pick(const std::vector<T>& from) {
        return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(m_random)];
    }
    bool chance(int percent) {
        return std::uniform_int_distribution<int>(0, 99)(m_random) < percent;
    }
    std::vector<Oid> alive(Entity entity) const {
        std::vector<Oid> out;
        for (const auto& [oid, o] : m_model.objects)
            if (o.entity == entity)
                out.push_back(oid);
        return out;
    }

    Value randomValue(Entity entity, const std::string& name) {
        static const std::vector<std::string> titles = {"a", "b", "Ünïcode/ß", "",
                                                        "a longer title"};
        if (name == "sortIndex")
            return std::int64_t{std::uniform_int_distribution<int>(-3, 3)(m_random)};
        if (name == "done")
            return chance(50);
        if (entity == kItem && chance(20))
            return std::monostate{};
        if (name == "title" || name == "name")
            return pick(titles);
        if (name == "due")
            return Date{double(std::uniform_int_distribution<int>(0, 4)(m_random)) * 86400.0};
        if (name == "score")
            return double(std::uniform_int_distribution<int>(0, 3)(m_random)) / 2.0;
        if (name == "identifier")
            return chance(50) ? Value(m_fixedUuid) : Value(platform::Uuid::generate());
        return Bytes{std::uint8_t(std::uniform_int_distribution<int>(0, 2)(m_random)), 0};
    }

    static std::vector<std::string> attributeNames(Entity entity) {
        switch (entity) {
        case kList: return {"title", "sortIndex"};
        case kItem: return {"title", "done", "due", "score", "identifier", "blob"};
        case kLabel: return {"name"};
        }
        return {};
    }

    void touch(Oid oid, const std::string& property) {
        if (oid)
            m_touched[oid].insert(property);
    }

    Oid insert(Entity entity) {
        const Oid oid = ++m_lastOid;
        auto object = m_worker->insertNewObject(kEntityNames[entity]);
        Object& o = m_model.objects[oid];
        o.entity = entity;
        for (const auto& name : attributeNames(entity)) {
            o.attributes[name] = randomValue(entity, name);
            object->setValue(name, o.attributes[name]);
        }
        m_pointers[oid] = object;
        m_newThisStep.push_back(oid);
        ++m_figures.inserted;
        if (entity == kItem) {
            if (auto lists = alive(kList); !lists.empty() && chance(70))
                setList(oid, pick(lists));
            if (auto labels = alive(kLabel); !labels.empty() && chance(50))
                toggleLabel(oid, pick(labels));
        }
        return oid;
    }

    void setList(Oid item, Oid list) {
        Object& o = m_model.objects.at(item);
        touch(item, "list");
        touch(o.list, "items");
        touch(list, "items");
        o.list = list;
        m_pointers.at(item)->setToOne(m_pointers.at(item)->propertyIndex("list"),
                                      list ? m_pointers.at(list) : nullptr);
    }

    void toggleLabel(Oid item, Oid label) {
        Object& o = m_model.objects.at(item);
        touch(item, "labels");
        touch(label, "items");
        const auto property = m_pointers.at(item)->propertyIndex("labels");
        if (o.labels.erase(label)) {
            m_pointers.at(item)->removeFromMany(property, m_pointers.at(label));
        } else {
            o.labels.insert(label);
            m_pointers.at(item)->addToMany(property, m_pointers.at(label));
        }
    }

    // The engine applies the delete rules itself; the model follows them:
    // a list takes its items (cascade), the rest is nullified.
    void remove(Oid oid) {
        m_worker->deleteObject(m_pointers.at(oid));
        forget(oid);
    }

    void forget(Oid oid) {
        const Object o = m_model.objects.at(oid);
        m_model.objects.erase(oid);
        ++m_figures.deleted;
        switch (o.entity) {
        case kList:
            for (Oid item : alive(kItem))
                if (m_model.objects.at(item).list == oid)
                    forget(item);
            break;
        case kItem:
            touch(o.list, "items");
            for (Oid label : o.labels)
                touch(label, "items");
            break;
        case kLabel:
            for (auto& [id, other] : m_model.objects)
                if (other.labels.erase(oid))
                    touch(id, "labels");
            break;
        }
    }

    void operate() {
        const bool crowded = m_model.objects.size() > kMaxObjects;
        const int roll = std::uniform_int_distribution<int>(0, 99)(m_random);
        const auto lists = alive(kList), items = alive(kItem), labels = alive(kLabel);
        if (roll < (crowded ? 5 : 25) || m_model.objects.empty()) {
            insert(roll % 3 == 0 ? kList : roll % 3 == 1 ? kItem : kLabel);
        } else if (roll < 55) {
            std::vector<Oid> all;
            for (const auto& [oid, o] : m_model.objects)
                all.push_back(oid);
            const Oid oid = pick(all);
            Object& o = m_model.objects.at(oid);
            const auto name = pick(attributeNames(o.entity));
            o.attributes[name] = randomValue(o.entity, name);
            m_pointers.at(oid)->setValue(name, o.attributes[name]);
            touch(oid, name);
            ++m_figures.updated;
        } else if (roll < 70 && !items.empty()) {
            setList(pick(items), lists.empty() || chance(15) ? 0 : pick(lists));
        } else if (roll < 82 && !items.empty() && !labels.empty()) {
            toggleLabel(pick(items), pick(labels));
        } else if (roll < (crowded ? 99 : 90)) {
            const auto& from = chance(20) && !lists.empty()    ? lists
                               : chance(50) && !labels.empty() ? labels
                                                               : items;
            if (!from.empty())
                remove(pick(from));
        }
    }

    // ---- Checks ----

    Oid oidOf(ObjectID id) const {
        const auto it = m_ids.find(id);
        return it == m_ids.end() ? -1 : it->second;
    }

    std::string checkChangeSet(const Model& before) {
        std::set<Oid> wantInserted, wantDeleted, gotInserted, gotDeleted;
        for (const auto& [oid, o] : m_model.objects)
            if (!before.objects.count(oid))
                wantInserted.insert(oid);
        for (const auto& [oid, o] : before.objects)
            if (!m_model.objects.count(oid))
                wantDeleted.insert(oid);
        for (const auto id : m_saved.inserted)
            gotInserted.insert(oidOf(id));
        for (const auto id : m_saved.deleted)
            gotDeleted.insert(oidOf(id));
        if (gotInserted != wantInserted)
            return fmt::format("inserted {} but the model inserted {}", oids(gotInserted),
                               oids(wantInserted));
        if (gotDeleted != wantDeleted)
            return fmt::format("deleted {} but the model deleted {}", oids(gotDeleted),
                               oids(wantDeleted));

        std::map<Oid, std::set<std::string>> reported;
        for (const auto& u : m_saved.updated) {
            const Oid oid = oidOf(u.id);
            if (!before.objects.count(oid) || !m_model.objects.count(oid))
                return fmt::format("object {} is updated but was not there before and after", oid);
            if (u.changedProperties.empty())
                return fmt::format("object {} is updated without its properties", oid);
            reported[oid] = {u.changedProperties.begin(), u.changedProperties.end()};
        }
        for (const auto& [oid, touched] : m_touched) {
            if (!before.objects.count(oid) || !m_model.objects.count(oid))
                continue;
            const View was = before.view(oid), is = m_model.view(oid);
            for (const auto& [name, value] : is)
                if (was.at(name) != value && !reported[oid].count(name) &&
                    !derived(m_model.objects.at(oid).entity, name))
                    return fmt::format("object {} changed {} ({} -> {}) unreported", oid, name,
                                       was.at(name), value);
        }
        for (const auto& [oid, names] : reported)
            for (const auto& name : names)
                if (!m_touched.count(oid) || !m_touched.at(oid).count(name))
                    return fmt::format("object {} reports {} changed, which nothing touched", oid,
                                       name);
        return {};
    }

    // A to-many whose members are kept by the other side's column (a list's
    // items) is a cache: a save reports the change on the item alone.
    bool derived(Entity entity, const std::string& name) const {
        const auto& e = *m_store->model().entity(kEntityNames[entity]);
        for (std::size_t r = 0; r < e.relationships.size(); ++r)
            if (e.relationships[r].name == name)
                return e.storage[r] == RelationshipStorage::InverseColumn;
        return false;
    }

    static std::string describe(const ChangeSet& c) {
        std::vector<std::string> parts;
        for (const auto id : c.inserted)
            parts.push_back(fmt::format("+{}:{}", id.entity, id.key));
        for (const auto id : c.deleted)
            parts.push_back(fmt::format("-{}:{}", id.entity, id.key));
        for (const auto& u : c.updated) {
            auto names = u.changedProperties;
            std::sort(names.begin(), names.end());
            parts.push_back(
                fmt::format("~{}:{}({})", u.id.entity, u.id.key, fmt::join(names, ",")));
        }
        std::sort(parts.begin(), parts.end());
        return fmt::format("{}", fmt::join(parts, " "));
    }

    std::string checkHistory() {
        auto history = m_store->historyAfter(m_lastToken);
        if (!history)
            return "history cannot be read: " + history.error().message;
        // A save that changed nothing writes no transaction.
        const std::size_t want = m_saved.empty() ? 0 : 1;
        if (history->size() != want)
            return fmt::format("history holds {} transactions for a save of {}", history->size(),
                               describe(m_saved));
        if (want == 0)
            return {};
        const auto& kept = history->front().changes;
        m_lastToken = kept.token;
        if (describe(kept) != describe(m_saved))
            return fmt::format("history keeps {} but the save said {}", describe(kept),
                               describe(m_saved));
        return {};
    }

    View engineView(const ObjectPtr& object) const {
        View v;
        const auto& entity = object->entityDescription();
        for (std::size_t i = 0; i < entity.attributes.size(); ++i)
            v[entity.attributes[i].name] = text(object->value(entity.attributes[i].name));
        for (const auto& r : entity.relationships) {
            const auto property = object->propertyIndex(r.name);
            if (r.toMany) {
                std::set<Oid> set;
                for (const auto id : object->toManyIDs(property))
                    set.insert(oidOf(id));
                v[r.name] = oids(set);
            } else {
                const auto id = object->toOneID(property);
                v[r.name] = std::to_string(id.isValid() ? oidOf(id) : 0);
            }
        }
        return v;
    }

    std::string compare(ObjectContext& context, Oid oid, std::map<Oid, ObjectPtr>& held) {
        auto& object = held[oid];
        if (!object)
            object = context.objectWithID(m_pointers.at(oid)->objectID());
        const View want = m_model.view(oid), got = engineView(object);
        if (want != got)
            return fmt::format("object {} reads {{{}}} but the model has {{{}}}", oid,
                               fmt::join(got, " "), fmt::join(want, " "));
        return {};
    }

    std::string checkMerged(bool everything) {
        std::string problem;
        m_observer->performAndWait([&] {
            m_observer->mergeChanges(m_saved);
            for (const auto id : m_saved.deleted)
                m_held.erase(oidOf(id));
            std::set<Oid> which;
            if (everything) {
                for (const auto& [oid, o] : m_model.objects)
                    which.insert(oid);
            } else {
                for (const auto& [oid, names] : m_touched)
                    if (m_model.objects.count(oid))
                        which.insert(oid);
            }
            for (Oid oid : which)
                if (problem = compare(*m_observer, oid, m_held); !problem.empty())
                    return;
        });
        ++m_figures.mergedChecks;
        return problem.empty() ? "" : "after the merge, " + problem;
    }

    std::string checkStore() {
        auto fresh = ObjectContext::make(m_store, ConcurrencyType::privateQueue);
        std::string problem;
        fresh->performAndWait([&] {
            std::size_t count = 0;
            for (const char* entity : kEntityNames) {
                auto all = fresh->fetch(FetchRequest(entity));
                if (!all) {
                    problem = all.error().message;
                    return;
                }
                count += all->size();
            }
            if (count != m_model.objects.size()) {
                problem = fmt::format("the store holds {} objects, the model {}", count,
                                      m_model.objects.size());
                return;
            }
            std::map<Oid, ObjectPtr> held;
            for (const auto& [oid, o] : m_model.objects)
                if (problem = compare(*fresh, oid, held); !problem.empty())
                    return;
        });
        return problem.empty() ? "" : "read back, " + problem;
    }

    std::mt19937_64 m_random;
    fs::path m_file;
    std::shared_ptr<PersistentStore> m_store;
    std::shared_ptr<ObjectContext> m_worker, m_observer;
    platform::ObserverToken m_observation;
    ChangeSet m_saved;
    std::optional<HistoryToken> m_lastToken;
    Model m_model;
    std::map<Oid, ObjectPtr> m_pointers, m_held;
    std::map<ObjectID, Oid> m_ids;
    std::map<Oid, std::set<std::string>> m_touched;
    std::vector<Oid> m_newThisStep;
    Oid m_lastOid = 0;
    platform::Uuid m_fixedUuid = platform::Uuid::generate();
    Figures m_figures;
};

} // namespace

int main(int argc, char** argv) {
    long transactions = 100'000;
    std::uint64_t seed = 1;
    std::string keep;
    CLI::App app("Random transactions through the engine, each checked against a plain model.",
                 "changeset_soak");
    app.add_option("--transactions", transactions, "How many transactions")->default_val(100'000);
    app.add_option("--seed", seed, "Seed of the random run")->default_val(1);
    app.add_option("--keep", keep, "Folder to copy the store into when a check fails");
    CLI11_PARSE(app, argc, argv);

    const fs::path folder = fs::temp_directory_path() / fmt::format("changeset-soak-{}", getpid());
    fs::create_directories(folder);
    const fs::path file = folder / "store.sqlite";
    const auto started = std::chrono::steady_clock::now();
    std::string problem;
    long failedAt = 0;
    Figures figures;
    {
        Run run(file, seed);
        for (long n = 1; n <= transactions && problem.empty(); ++n) {
            problem = run.step(n);
            failedAt = n;
            if (n % 10'000 == 0)
                std::fprintf(stderr, "%ld transactions\n", n);
        }
        figures = run.figures();
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    fmt::print("transactions {}, operations {} (inserts {}, attribute sets {}, deletions {}), "
               "merge checks {}, full read-backs {}, {:.1f} s\n",
               figures.transactions, figures.operations, figures.inserted, figures.updated,
               figures.deleted, figures.mergedChecks, figures.fullChecks, seconds);
    if (!problem.empty()) {
        fmt::print("transaction {}: {}\nreproduce: changeset_soak --seed {} --transactions {}\n",
                   failedAt, problem, seed, failedAt);
        if (!keep.empty()) {
            fs::create_directories(keep);
            fs::copy(folder, keep,
                     fs::copy_options::recursive | fs::copy_options::overwrite_existing);
            fmt::print("store kept in {}\n", keep);
        }
    }
    fs::remove_all(folder);
    fmt::print("change-set oracle: {}\n", problem.empty() ? "PASS" : "FAIL");
    return problem.empty() ? 0 : 1;
}
