#include "tasket/commands/lists_command.h"

#include "common/json_writer.h"
#include "store/untitled.h"
#include "tasket/store_view.h"

#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& ListsCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "lists",
        .usage = "tasket lists [--json]",
        .summary = "Print the lists in your order, with their task counts",
        .help = "Prints one line per list: its title, how many tasks it holds and its\n"
                "identifier, in the order the application shows them. With --json, an\n"
                "array of {\"listID\", \"title\", \"tasks\"}.",
    };
    return kInfo;
}

platform::Result<void> ListsCommand::run(CommandContext& context) {
    auto view = openStoreView();
    if (!view)
        return std::unexpected(view.error());
    const auto& lists = view->fetchManager->categories().value();
    JsonWriter json;
    json.beginArray();
    for (const auto& list : lists) {
        const std::string title = list->title().value_or("");
        const std::string id = list->categoryID().value_or("");
        const std::size_t tasks = list->tasks().size();
        if (context.json)
            json.beginObject()
                .key("listID")
                .string(id)
                .key("title")
                .string(title)
                .key("tasks")
                .integer(static_cast<std::int64_t>(tasks))
                .endObject();
        else
            context.out << fmt::format("{}\t{} tasks\t{}\n",
                                       title.empty() ? store::kNewCategoryTitle : title, tasks, id);
    }
    json.endArray();
    if (context.json)
        context.out << json.finish();
    return {};
}

} // namespace tasket::apps
