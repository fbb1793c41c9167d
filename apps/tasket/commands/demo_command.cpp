#include "tasket/commands/demo_command.h"

#include "objectstore/object_context.h"
#include "platform/clock.h"
#include "platform/json_writer.h"
#include "store/local_data_manager.h"
#include "store/records.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

using platform::Errc;
using platform::fail;

const CommandInfo& DemoCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "demo",
        .usage = "tasket demo [--title TEXT] [--json]",
        .summary = "Save a task into the list \"Demo\" and read it back",
        .help = "Opens (creating when missing) the store TK_Data.sqlite in\n"
                "$XDG_DATA_HOME/group.QRX-Lumenforge.Tasket/, makes sure a list named \"Demo\"\n"
                "exists, saves a new task in it and reads the task back from the file\n"
                "through a fresh context. Prints the task and how many tasks the list holds.",
    };
    return kInfo;
}

void DemoCommand::addOptions(CLI::App& command) {
    command.add_option("--title", m_title, "The new task's title")->capture_default_str();
}

platform::Result<void> DemoCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& view = *manager->viewContext();
    const auto now = platform::Clock::shared().now();

    auto lists = store::TK_Category::fetchRequest();
    lists.predicate = *objectstore::Predicate::parse("title == %@", {"Demo"});
    auto found = view.fetch(lists);
    if (!found)
        return std::unexpected(found.error());
    std::shared_ptr<store::TK_Category> list;
    if (found->empty()) {
        list = store::TK_Category::insertNew(view);
        list->setCategoryID(platform::Uuid::generate().toString());
        list->setTitle(std::string("Demo"));
        list->setWhenCreated(now);
    } else {
        list = std::static_pointer_cast<store::TK_Category>(found->front());
    }
    auto task = store::TK_Task::insertNew(view);
    const std::string taskID = platform::Uuid::generate().toString();
    task->setTaskID(taskID);
    task->setTitle(m_title);
    task->setWhenCreated(now);
    task->setCategory(list);
    if (auto saved = view.save(); !saved)
        return fail(saved.error().code, "the task could not be saved: " + saved.error().message);

    // Read back from the file through a context that has never seen it.
    auto reader = manager->newBackgroundContext();
    platform::Result<void> outcome;
    reader->performAndWait([&] {
        auto request = store::TK_Task::fetchRequest();
        request.predicate = *objectstore::Predicate::parse("taskID == %@", {taskID});
        auto tasks = reader->fetch(request);
        if (!tasks || tasks->size() != 1) {
            outcome = fail(Errc::storeError, "the saved task could not be read back");
            return;
        }
        auto back = std::static_pointer_cast<store::TK_Task>(tasks->front());
        auto category = back->category();
        const std::string listTitle = category ? category->title().value_or("") : "";
        const auto count = category ? category->tasks().size() : 0;
        if (context.json) {
            context.out << platform::JsonWriter()
                               .beginObject()
                               .key("store")
                               .string(manager->storeURL().string())
                               .key("taskID")
                               .string(taskID)
                               .key("title")
                               .string(back->title().value_or(""))
                               .key("list")
                               .string(listTitle)
                               .key("tasksInList")
                               .integer(static_cast<std::int64_t>(count))
                               .endObject()
                               .finish()
                               .value();
        } else {
            context.out << fmt::format(
                "Saved \"{}\" in the list \"{}\" ({} tasks there now)\n  store: {}\n  task:  {}\n",
                back->title().value_or(""), listTitle, count, manager->storeURL().string(), taskID);
        }
    });
    return outcome;
}

} // namespace tasket::apps
