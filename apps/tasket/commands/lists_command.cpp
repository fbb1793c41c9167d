#include "tasket/commands/lists_command.h"

#include "platform/json_writer.h"
#include "rules/texts.h"
#include "share/category_choice.h"
#include "tasket/named_objects.h"
#include "tasket/store_view.h"
#include "tasket/terminal_style.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& ListsCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "lists",
        .usage = "tasket lists [--json]\n"
                 "       tasket lists add NAME\n"
                 "       tasket lists rename NAME NEW-NAME\n"
                 "       tasket lists archive NAME [--unarchive]",
        .summary = "Print the lists with their task counts; add, rename or archive one",
        .help = "Without a subcommand, prints one line per list: its title, how many tasks\n"
                "it holds and its identifier, in the order the application shows them. With\n"
                "--json, an array of {\"listID\", \"title\", \"tasks\"}. NAME is a list's title\n"
                "or identifier. \"add\" prints the new list's identifier.",
    };
    return kInfo;
}

void ListsCommand::addOptions(CLI::App& command) {
    command.require_subcommand(0, 1);
    m_add = command.add_subcommand("add", "Make a new list");
    m_add->add_option("NAME", m_name, "The new list's title")->required();
    m_rename = command.add_subcommand("rename", "Give a list a new title");
    m_rename->add_option("NAME", m_name, "The list (title or identifier)")->required();
    m_rename->add_option("NEW-NAME", m_newName, "Its new title")->required();
    m_archive = command.add_subcommand("archive", "Archive a list: its tasks stay, hidden");
    m_archive->add_option("NAME", m_name, "The list (title or identifier)")->required();
    m_archive->add_flag("--unarchive", m_unarchive, "Bring an archived list back");
    for (CLI::App* sub : {m_add, m_rename, m_archive})
        sub->fallthrough();
}

platform::Result<void> ListsCommand::run(CommandContext& context) {
    if (m_add->parsed() || m_rename->parsed() || m_archive->parsed())
        return change(context);
    return print(context);
}

platform::Result<void> ListsCommand::print(CommandContext& context) {
    auto view = openStoreView(store::collectionKinds({store::CollectionKind::categories}));
    if (!view)
        return std::unexpected(view.error());
    auto& viewContext = *view->localDataManager->viewContext();
    const auto& lists = view->fetchManager->categories().value();
    const TerminalStyle style = TerminalStyle::forOutput(context.isTerminal);
    platform::JsonWriter json;
    json.beginArray();
    for (const auto& list : lists) {
        const std::string title = list->title().value_or("");
        const std::string id = list->categoryID().value_or("");
        auto request = store::TK_Task::fetchRequest();
        request.predicate =
            objectstore::Predicate::parse("category = %@", {list->objectID()}).value();
        auto tasks = viewContext.count(request);
        if (!tasks)
            return std::unexpected(tasks.error());
        if (context.json)
            json.beginObject()
                .key("listID")
                .string(id)
                .key("title")
                .string(title)
                .key("tasks")
                .integer(static_cast<std::int64_t>(*tasks))
                .endObject();
        else
            context.out << fmt::format(
                "{}\t{} tasks\t{}\n",
                style.paint(TerminalStyle::Tone::list,
                            title.empty() ? rules::texts::kNewCategory.translated() : title),
                *tasks, style.paint(TerminalStyle::Tone::dim, id));
    }
    json.endArray();
    if (context.json)
        context.out << json.finish().value();
    return {};
}

platform::Result<void> ListsCommand::change(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    std::string id;
    if (m_add->parsed()) {
        if (m_name.empty())
            return platform::fail(platform::Errc::invalidArgument, "a list needs a title");
        id = share::insertNewCategory(viewContext, m_name)->categoryID().value_or("");
    } else {
        auto list = findNamed<store::TK_Category>(viewContext, m_name);
        if (!list)
            return std::unexpected(list.error());
        if (m_rename->parsed()) {
            if (m_newName.empty())
                return platform::fail(platform::Errc::invalidArgument, "a list needs a title");
            (*list)->setTitle(m_newName);
        } else {
            (*list)->setIsArchived(!m_unarchive);
        }
        id = (*list)->categoryID().value_or("");
    }
    if (auto saved = withStoreAdvice(viewContext.save()); !saved)
        return saved;
    if (context.json)
        context.out << fmt::format("{{\n  \"listID\": \"{}\"\n}}\n", id);
    else if (m_add->parsed())
        context.out << id << '\n';
    return {};
}

} // namespace tasket::apps
