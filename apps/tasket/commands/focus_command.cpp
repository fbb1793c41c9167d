#include "tasket/commands/focus_command.h"

#include "platform/json_writer.h"
#include "settings/focus_filter.h"
#include "store/lookup.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& FocusCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "focus",
        .usage = "tasket focus set LIST... | clear | status [--json]",
        .summary = "Narrow the tasks to some lists, end that focus, or show it",
        .help = "set focuses on the lists named (by title or identifier): the tasks every\n"
                "program shows are then those of these lists only, and programs that are\n"
                "running follow at once. clear ends the focus. status prints one line per\n"
                "focused list (title and identifier), or \"no focus\"; with --json,\n"
                "{\"isFocused\", \"categories\": [{\"id\", \"title\"}]}.",
    };
    return kInfo;
}

void FocusCommand::addOptions(CLI::App& command) {
    command.add_option("action", m_action, "set, clear or status")
        ->required()
        ->check(CLI::IsMember({"set", "clear", "status"}));
    command.add_option("lists", m_lists, "The lists to focus on (set)");
}

platform::Result<void> FocusCommand::run(CommandContext& context) {
    if (m_action != "set" && !m_lists.empty())
        return platform::fail(platform::Errc::invalidArgument,
                              fmt::format("focus {} takes no lists", m_action));
    auto view = openStoreView(store::collectionKinds({store::CollectionKind::categories}));
    if (!view)
        return std::unexpected(view.error());
    auto& suite = *view->customizationManager->appGroupSuite();
    const auto lists = store::offeredCategories(view->fetchManager->categories().value());

    if (m_action == "set") {
        if (m_lists.empty())
            return platform::fail(platform::Errc::invalidArgument,
                                  "focus set needs at least one list");
        std::vector<std::string> ids;
        for (const auto& name : m_lists) {
            auto list = store::findList(lists, name);
            if (!list)
                return std::unexpected(list.error());
            ids.push_back((*list)->categoryID().value_or(""));
        }
        return settings::storeFocus(suite, ids);
    }
    if (m_action == "clear")
        return settings::storeFocus(suite, std::nullopt);

    const auto focus = settings::storedFocus(suite);
    platform::JsonWriter json;
    json.beginObject().key("isFocused").boolean(focus.has_value()).key("categories").beginArray();
    if (!focus && !context.json)
        context.out << "no focus\n";
    for (const auto& id : focus.value_or(std::vector<std::string>{})) {
        const auto list = store::findList(lists, id);
        const std::string title = list ? (*list)->title().value_or("") : "";
        if (context.json)
            json.beginObject().key("id").string(id).key("title").string(title).endObject();
        else
            context.out << fmt::format("{}\t{}\n", title, id);
    }
    if (context.json)
        context.out << json.endArray().endObject().finish().value();
    return {};
}

} // namespace tasket::apps
