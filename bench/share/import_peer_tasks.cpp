// import_peer_tasks: loads a task set in the peer's import format (a JSON
// array of tasks with uuid, description, entry, project, tags, due, status)
// into a new Tasket store through the store library, so that benchmarks run
// the same tasks on both sides. Projects become lists, tags become tags, due
// becomes the due reminder (its day and its moment), completed becomes
// isCompleted; a list named "Inbox" is added when the data has none.
// Afterwards it counts the rows through the store and compares them with the
// counts in OUT.json.meta.json.
//
//   import_peer_tasks TASKS_JSON DATA_HOME [--batch N]
#include "objectstore/object_context.h"
#include "objectstore/predicate/predicate.h"
#include "platform/calendar.h"
#include "platform/date.h"
#include "platform/uuid.h"
#include "store/application_group.h"
#include "store/local_data_manager.h"
#include "store/records.h"

#include <fmt/core.h>
#include <simdjson.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using tasket::objectstore::ObjectContext;
using tasket::objectstore::ObjectID;
using tasket::objectstore::Predicate;
using tasket::objectstore::PredicateArgument;
using tasket::platform::Date;
namespace store = tasket::store;

constexpr std::string_view kInbox = "Inbox";

struct PeerTask {
    std::string uuid;
    std::string description;
    std::string project;
    std::vector<std::string> tags;
    double entry = 0;
    std::optional<double> due;
    bool completed = false;
};

// "20240611T093000Z" as Unix seconds.
double peerDate(std::string_view text) {
    auto digits = [&](std::size_t at, std::size_t count) {
        int v = 0;
        for (std::size_t i = at; i < at + count; ++i) {
            if (i >= text.size() || !std::isdigit(static_cast<unsigned char>(text[i])))
                throw std::runtime_error(fmt::format("not a date: {}", text));
            v = v * 10 + (text[i] - '0');
        }
        return v;
    };
    if (text.size() != 16 || text[8] != 'T' || text[15] != 'Z')
        throw std::runtime_error(fmt::format("not a date: {}", text));
    std::tm tm{};
    tm.tm_year = digits(0, 4) - 1900;
    tm.tm_mon = digits(4, 2) - 1;
    tm.tm_mday = digits(6, 2);
    tm.tm_hour = digits(9, 2);
    tm.tm_min = digits(11, 2);
    tm.tm_sec = digits(13, 2);
    return static_cast<double>(timegm(&tm));
}

std::string upper(std::string_view text) {
    std::string out(text);
    std::ranges::transform(out, out.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return out;
}

std::vector<PeerTask> readTasks(const fs::path& file) {
    simdjson::ondemand::parser parser;
    const auto json = simdjson::padded_string::load(file.string());
    if (json.error())
        throw std::runtime_error(fmt::format("cannot read {}", file.string()));
    auto document = parser.iterate(json.value_unsafe());
    std::vector<PeerTask> tasks;
    for (auto item : document.get_array()) {
        auto object = item.get_object();
        PeerTask task;
        for (auto field : object) {
            const std::string_view key = field.unescaped_key();
            auto value = field.value();
            if (key == "uuid")
                task.uuid = upper(std::string_view(value.get_string()));
            else if (key == "description")
                task.description = std::string_view(value.get_string());
            else if (key == "project")
                task.project = std::string_view(value.get_string());
            else if (key == "entry")
                task.entry = peerDate(value.get_string());
            else if (key == "due")
                task.due = peerDate(value.get_string());
            else if (key == "status")
                task.completed = std::string_view(value.get_string()) == "completed";
            else if (key == "tags")
                for (auto tag : value.get_array())
                    task.tags.emplace_back(std::string_view(tag.get_string()));
        }
        tasks.push_back(std::move(task));
    }
    return tasks;
}

struct Meta {
    double now = 0;
    std::map<std::string, std::int64_t, std::less<>> expected;
};

Meta readMeta(const fs::path& file) {
    simdjson::ondemand::parser parser;
    const auto json = simdjson::padded_string::load(file.string());
    if (json.error())
        throw std::runtime_error(fmt::format("cannot read {}", file.string()));
    auto document = parser.iterate(json.value_unsafe());
    Meta meta;
    for (auto field : document.get_object()) {
        const std::string_view key = field.unescaped_key();
        if (key == "now")
            meta.now = field.value().get_double();
        else if (key == "expected")
            for (auto count : field.value().get_object())
                meta.expected[std::string(std::string_view(count.unescaped_key()))] =
                    count.value().get_int64();
    }
    return meta;
}

std::string newIdentifier() {
    return tasket::platform::Uuid::generate().toString();
}

// Writes every task in saves of `batch`, then makes sure the Inbox exists.
void importTasks(ObjectContext& context, const std::vector<PeerTask>& tasks, std::size_t batch) {
    const Date now = Date::fromSystem(std::chrono::system_clock::now());
    std::map<std::string, ObjectID, std::less<>> lists;
    std::map<std::string, ObjectID, std::less<>> tags;
    auto save = [&] {
        if (auto saved = context.save(); !saved)
            throw std::runtime_error("save failed: " + saved.error().message);
    };
    // Lists and tags go first, in one save, so that every batch refers to
    // them by their permanent identities.
    {
        std::map<std::string, std::shared_ptr<store::TK_Category>, std::less<>> newLists;
        std::map<std::string, std::shared_ptr<store::TK_Tag>, std::less<>> newTags;
        auto addList = [&](std::string_view title) {
            if (newLists.contains(title))
                return;
            auto list = store::TK_Category::insertNew(context);
            list->setCategoryID(newIdentifier());
            list->setTitle(std::string(title));
            list->setWhenCreated(now);
            list->setSortIndex(static_cast<std::int16_t>(newLists.size()));
            newLists.emplace(title, list);
        };
        for (const auto& task : tasks) {
            addList(task.project.empty() ? kInbox : std::string_view(task.project));
            for (const auto& title : task.tags)
                if (!newTags.contains(title)) {
                    auto tag = store::TK_Tag::insertNew(context);
                    tag->setTagID(newIdentifier());
                    tag->setTitle(title);
                    tag->setWhenCreated(now);
                    tag->setSortIndex(static_cast<std::int16_t>(newTags.size()));
                    newTags.emplace(title, tag);
                }
        }
        addList(kInbox);
        save();
        for (const auto& [title, list] : newLists)
            lists.emplace(title, list->objectID());
        for (const auto& [title, tag] : newTags)
            tags.emplace(title, tag->objectID());
        context.reset();
    }

    const auto calendar = tasket::platform::Calendar::current();
    std::size_t done = 0;
    while (done < tasks.size()) {
        const std::size_t end = std::min(tasks.size(), done + batch);
        for (std::size_t i = done; i < end; ++i) {
            const PeerTask& peer = tasks[i];
            auto task = store::TK_Task::insertNew(context);
            task->setTaskID(peer.uuid);
            task->setTitle(peer.description);
            task->setWhenCreated(Date::fromUnix(peer.entry));
            if (peer.due) {
                // A due date is a due reminder: the switch, the day and the moment.
                const Date due = Date::fromUnix(*peer.due);
                task->setIsRemindEnabled(true);
                task->setIsAllDay(false);
                task->setDueDate(calendar.startOfDay(due));
                task->setDueDateAndTime(due);
            }
            task->setIsCompleted(peer.completed);
            const auto list = lists.find(peer.project.empty() ? kInbox : peer.project);
            task->setCategory(
                std::static_pointer_cast<store::TK_Category>(context.objectWithID(list->second)));
            for (const auto& title : peer.tags)
                task->addToTags(std::static_pointer_cast<store::TK_Tag>(
                    context.objectWithID(tags.find(title)->second)));
        }
        save();
        context.reset();
        done = end;
        std::fprintf(stderr, "\rimport_peer_tasks: %zu of %zu tasks saved", done, tasks.size());
    }
    std::fprintf(stderr, "\n");
}

std::int64_t count(ObjectContext& context, const tasket::objectstore::FetchRequest& base,
                   std::string_view format, std::vector<PredicateArgument> arguments = {}) {
    auto request = base;
    if (!format.empty()) {
        auto parsed = Predicate::parse(format, arguments);
        if (!parsed)
            throw std::runtime_error(fmt::format("{}: {}", format, parsed.error().message));
        request.predicate = *parsed;
    }
    auto counted = context.count(request);
    if (!counted)
        throw std::runtime_error(fmt::format("{}: {}", format, counted.error().message));
    return static_cast<std::int64_t>(*counted);
}

// Counts what the meta file names, through the store, and compares. Returns
// whether everything matched.
bool check(ObjectContext& context, const Meta& meta) {
    const Date now = Date::fromUnix(meta.now);
    const Date nowPlusHour = now.addingSeconds(3600);
    const auto tasks = store::TK_Task::fetchRequest();
    std::int64_t tagAssignments = 0;
    {
        auto all = context.fetch(store::TK_Tag::fetchRequest());
        if (!all)
            throw std::runtime_error(all.error().message);
        for (const auto& tag : *all)
            tagAssignments += static_cast<std::int64_t>(
                std::static_pointer_cast<store::TK_Tag>(tag)->tasks().size());
    }
    struct Row {
        std::string name;
        std::int64_t got;
        std::int64_t tolerance = 0;
    };
    const std::vector<Row> rows = {
        {"total", count(context, tasks, "")},
        {"pending", count(context, tasks, "isCompleted == %@", {false})},
        {"completed", count(context, tasks, "isCompleted == %@", {true})},
        {"with_due", count(context, tasks, "dueDateAndTime != nil")},
        {"pending_tag7",
         count(context, tasks, "isCompleted == %@ AND ANY tags.title == %@", {false, "tag7"})},
        {"pending_tag7_due_before_now",
         count(context, tasks, "isCompleted == %@ AND ANY tags.title == %@ AND dueDateAndTime < %@",
               {false, "tag7", now})},
        {"todoman_pending_cat_like_tag7",
         count(context, tasks, "isCompleted == %@ AND ANY tags.title CONTAINS %@",
               {false, "tag7"})},
        // The peer file keeps due instants to the second; the set was drawn
        // with fractions, so a task within a second of the bound may differ.
        {"todoman_pending_cat_like_tag7_due_lt_now_plus_1h",
         count(context, tasks,
               "isCompleted == %@ AND ANY tags.title CONTAINS %@ AND dueDateAndTime < %@",
               {false, "tag7", nowPlusHour}),
         2},
        {"tag_assignments", tagAssignments},
    };
    bool ok = true;
    for (const auto& row : rows) {
        const auto wanted = meta.expected.find(row.name);
        const bool known = wanted != meta.expected.end();
        const bool matches = known && std::llabs(wanted->second - row.got) <= row.tolerance;
        ok = ok && (matches || !known);
        const std::string verdict = !known ? "(not in meta)"
                                    : matches
                                        ? "ok"
                                        : fmt::format("MISMATCH, expected {}", wanted->second);
        std::printf("%-50s %8lld  %s\n", row.name.c_str(), static_cast<long long>(row.got),
                    verdict.c_str());
    }
    std::printf("%-50s %8lld\n", "lists",
                static_cast<long long>(count(context, store::TK_Category::fetchRequest(), "")));
    std::printf("%-50s %8lld\n", "tags",
                static_cast<long long>(count(context, store::TK_Tag::fetchRequest(), "")));
    std::printf("%-50s %8lld\n", "lists titled Inbox",
                static_cast<long long>(count(context, store::TK_Category::fetchRequest(),
                                             "title == %@", {std::string(kInbox)})));
    return ok;
}

int run(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::size_t batch = 5000;
    if (auto at = std::ranges::find(arguments, "--batch"); at != arguments.end()) {
        if (at + 1 == arguments.end())
            throw std::runtime_error("--batch needs a number");
        batch = std::max<std::size_t>(1, std::stoul(*(at + 1)));
        arguments.erase(at, at + 2);
    }
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: import_peer_tasks TASKS_JSON DATA_HOME [--batch N]\n");
        return 64;
    }
    const fs::path tasksFile = arguments[0];
    const fs::path metaFile = tasksFile.string() + ".meta.json";
    auto container = store::prepareApplicationGroupContainer(arguments[1]);
    if (!container)
        throw std::runtime_error(container.error().message);
    if (fs::exists(*container / store::kStoreFileName))
        throw std::runtime_error(fmt::format("{} exists already; import into a new folder",
                                             (*container / store::kStoreFileName).string()));

    const auto tasks = readTasks(tasksFile);
    const Meta meta = readMeta(metaFile);
    auto manager = store::LocalDataManager::make(*container);
    auto context = manager->newBackgroundContext();
    bool ok = false;
    std::exception_ptr failure;
    context->performAndWait([&] {
        try {
            importTasks(*context, tasks, batch);
            ok = check(*context, meta);
        } catch (...) {
            failure = std::current_exception();
        }
    });
    if (failure)
        std::rethrow_exception(failure);
    std::printf("store: %s\n", manager->storeURL().c_str());
    if (!ok)
        std::fprintf(stderr, "import_peer_tasks: the counts do not match %s\n", metaFile.c_str());
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "import_peer_tasks: %s\n", error.what());
        return 1;
    }
}
