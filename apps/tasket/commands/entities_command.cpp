#include "tasket/commands/entities_command.h"

#include "platform/json_writer.h"
#include "services/automation_entities.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <initializer_list>
#include <string_view>
#include <utility>

namespace tasket::apps {
namespace {

using platform::JsonWriter;
using namespace services;

// Opens an entity's object with its text fields, in this order.
JsonWriter&
beginEntity(JsonWriter& json,
            std::initializer_list<std::pair<std::string_view, std::string_view>> texts) {
    json.beginObject();
    for (const auto& [name, text] : texts)
        json.key(name).string(text);
    return json;
}

void write(JsonWriter& json, const TK_TasksListAppEntity& e) {
    beginEntity(json, {{"id", e.id},
                       {"title", e.title},
                       {"notes", e.notes},
                       {"color", e.color},
                       {"icon", e.icon},
                       {"type", e.type}})
        .endObject();
}

void write(JsonWriter& json, const TK_TaskAppEntity& e) {
    beginEntity(json, {{"id", e.id}, {"title", e.title}, {"notes", e.notes}, {"color", e.color}})
        .key("isCompleted")
        .boolean(e.isCompleted)
        .key("category");
    if (e.category)
        write(json, *e.category);
    else
        json.null();
    json.endObject();
}

void write(JsonWriter& json, const TK_FocusFilterCategoryAppEntity& e) {
    beginEntity(json, {{"id", e.id}, {"title", e.title}, {"notes", e.notes}, {"icon", e.icon}})
        .endObject();
}

// Asks `query` as the options say and prints what it found.
template <class Query>
platform::Result<void> answer(Query query, const std::vector<std::string>& identifiers,
                              const std::optional<std::string>& search, CommandContext& context) {
    auto found = search                ? query.entities(std::string_view(*search))
                 : identifiers.empty() ? query.suggestedEntities()
                                       : query.entities(std::span<const std::string>(identifiers));
    if (!found)
        return std::unexpected(found.error());
    JsonWriter json;
    json.beginArray();
    for (const auto& entity : *found) {
        if (context.json)
            write(json, entity);
        else
            context.out << fmt::format("{}\t{}\n", entity.id, entity.title);
    }
    if (context.json)
        context.out << json.endArray().finish().value();
    return {};
}

} // namespace

const CommandInfo& EntitiesCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "entities",
        .usage = "tasket entities tasks|lists|focus-lists [--id ID]... [--search TEXT]\n"
                 "       [--excluding-lists] [--json]",
        .summary = "Print tasks, lists or focus lists as automation entities",
        .help = "Prints the entities that shortcuts and focus filters name: with --id, those\n"
                "with these identifiers; with --search, those whose title holds the text\n"
                "(ignoring case); else the suggestions (tasks still to do, newest first;\n"
                "every list that is not archived). \"lists\" are all kinds of task list\n"
                "(lists, tags, priorities, statuses, values); --excluding-lists leaves the\n"
                "lists proper out. One line per entity (identifier and title); with --json,\n"
                "an array of objects keyed by the entities' field names: tasks {id, title,\n"
                "notes, color, isCompleted, category}, lists {id, title, notes, color, icon,\n"
                "type}, focus lists {id, title, notes, icon}.",
    };
    return kInfo;
}

void EntitiesCommand::addOptions(CLI::App& command) {
    command.add_option("kind", m_kind, "tasks, lists or focus-lists")
        ->required()
        ->check(CLI::IsMember({"tasks", "lists", "focus-lists"}));
    command.add_option("--id", m_identifiers, "An identifier to resolve (repeatable)");
    command.add_option("--search", m_search, "Text the titles hold");
    command.add_flag("--excluding-lists", m_excludingLists, "Lists: leave the lists proper out");
}

platform::Result<void> EntitiesCommand::run(CommandContext& context) {
    if (m_search && !m_identifiers.empty())
        return platform::fail(platform::Errc::invalidArgument,
                              "--id and --search cannot be used together");
    // The queries fetch for themselves: no collections are kept.
    const auto manager = openStoreForOneCommand();
    auto& store = *manager->viewContext();
    if (m_kind == "tasks")
        return answer(TK_TasksAppEntityQuery(store), m_identifiers, m_search, context);
    if (m_kind == "lists")
        return answer(TK_TasksListAppEntityQuery(store, !m_excludingLists), m_identifiers, m_search,
                      context);
    return answer(TK_FocusFilterCategoryAppEntityQuery(store), m_identifiers, m_search, context);
}

} // namespace tasket::apps
