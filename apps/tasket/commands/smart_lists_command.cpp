#include "tasket/commands/smart_lists_command.h"

#include "common/task_report.h"
#include "platform/clock.h"
#include "platform/date_text.h"
#include "platform/json_writer.h"
#include "platform/uuid.h"
#include "rules/enum_table.h"
#include "rules/predicates.h"
#include "store/smart_filters.h"
#include "tasket/named_objects.h"
#include "tasket/store_view.h"
#include "tasket/terminal_style.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

namespace {

using platform::Errc;
using platform::fail;
using platform::Result;
using store::TK_SmartCategory;

// off, no or yes, for a three-valued filter.
template <class E> Result<E> offNoYes(std::string_view option, const std::string& text) {
    if (auto value = rules::fromCaseName<E>(text))
        return *value;
    return fail(Errc::invalidArgument,
                fmt::format("{} takes yes, no or off, not \"{}\"", option, text));
}

struct DateFilterFields {
    void (TK_SmartCategory::*filter)(rules::TK_ReminderFilter);
    void (TK_SmartCategory::*from)(std::optional<platform::Date>);
    void (TK_SmartCategory::*to)(std::optional<platform::Date>);
    void (TK_SmartCategory::*relative)(rules::TK_RelativeDate);
};

// off | no | range FROM TO | yesterday | today | tomorrow | overdue | upcoming;
// "-" for a range end leaves it open (today when the list is shown).
Result<void> setDateFilter(TK_SmartCategory& smart, const DateFilterFields& fields,
                           std::string_view option, const std::vector<std::string>& words) {
    using F = rules::TK_ReminderFilter;
    const std::string& kind = words.front();
    const auto wrong = [&] {
        return fail(Errc::invalidArgument,
                    fmt::format("{} takes off, no, range FROM TO, yesterday, today, tomorrow, "
                                "overdue or upcoming, not \"{}\"",
                                option, fmt::join(words, " ")));
    };
    if (kind == "range") {
        if (words.size() != 3)
            return wrong();
        const auto now = platform::Clock::shared().now();
        std::optional<platform::Date> ends[2];
        for (int i = 0; i < 2; ++i) {
            if (words[static_cast<std::size_t>(i) + 1] == "-")
                continue;
            auto when =
                platform::parseWhen(words[static_cast<std::size_t>(i) + 1], now, localCalendar());
            if (!when)
                return std::unexpected(when.error());
            ends[i] = localCalendar().startOfDay(when->date);
        }
        (smart.*fields.filter)(F::range);
        (smart.*fields.from)(ends[0]);
        (smart.*fields.to)(ends[1]);
        return {};
    }
    if (words.size() != 1)
        return wrong();
    if (const auto relative = rules::fromCaseName<rules::TK_RelativeDate>(kind);
        relative && (*relative == rules::TK_RelativeDate::yesterday ||
                     *relative == rules::TK_RelativeDate::today ||
                     *relative == rules::TK_RelativeDate::tomorrow)) {
        (smart.*fields.filter)(F::relative);
        (smart.*fields.relative)(*relative);
        return {};
    }
    const auto filter = rules::fromCaseName<F>(kind);
    if (!filter || *filter == F::range || *filter == F::relative)
        return wrong();
    (smart.*fields.filter)(*filter);
    return {};
}

// The objects a --lists/--tags/... option chose; empty for "no" and "off".
template <class Record, class Filter>
Result<void> setChoice(TK_SmartCategory& smart, const std::vector<std::string>& words,
                       void (TK_SmartCategory::*setFilter)(Filter),
                       std::vector<std::shared_ptr<Record>> (TK_SmartCategory::*chosen)() const,
                       void (TK_SmartCategory::*remove)(const std::shared_ptr<Record>&),
                       void (TK_SmartCategory::*add)(const std::shared_ptr<Record>&)) {
    for (const auto& old : (smart.*chosen)())
        (smart.*remove)(old);
    if (words.size() == 1 && (words[0] == "off" || words[0] == "no")) {
        const auto filter = rules::fromCaseName<Filter>(words[0]);
        if (!filter)
            return fail(Errc::invalidArgument, "a list filter is on or off: there is no \"no\"");
        (smart.*setFilter)(*filter);
        return {};
    }
    for (const auto& name : words) {
        if (name.empty())
            continue; // the option given alone
        auto found = findNamed<Record>(*smart.context(), name);
        if (!found)
            return std::unexpected(found.error());
        (smart.*add)(*found);
    }
    (smart.*setFilter)(Filter::yes);
    return {};
}

} // namespace

const CommandInfo& SmartListsCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "smart-lists",
        .usage = "tasket smart-lists [--json]\n"
                 "       tasket smart-lists add|edit NAME [--title T] [--completed yes|no|off]\n"
                 "           [--notes yes|no|off] [--link yes|no|off] [--start DATES]\n"
                 "           [--due DATES] [--lists [L...]] [--subtasks yes|no|off]\n"
                 "           [--tags [T...]] [--priorities [P...]] [--statuses [S...]]\n"
                 "           [--values [V...]] [--pinned yes|no|off] [--attachments yes|no|off]",
        .summary = "Print the smart lists; make or change one",
        .help = "Without a subcommand, prints each smart list's title, how many tasks it shows\n"
                "and its identifier. \"add\" makes a smart list titled NAME, \"edit\" changes\n"
                "the one named NAME (title or identifier); only the options given change.\n"
                "DATES is off, no, range FROM TO (WHEN or - for today), yesterday, today,\n"
                "tomorrow, overdue or upcoming. --lists, --tags, --priorities, --statuses and\n"
                "--values alone keep tasks that have any; with names, any of those; \"no\"\n"
                "keeps tasks without; \"off\" stops filtering. \"tasket tasks --smart NAME\"\n"
                "prints the tasks a smart list shows.",
    };
    return kInfo;
}

void SmartListsCommand::addFilterOptions(CLI::App& command) {
    command.add_option("--title", m_title, "A new title")->type_name("TEXT");
    command.add_option("--completed", m_completed, "Completed tasks: yes, no or off");
    command.add_option("--notes", m_notes, "Tasks with notes: yes, no or off");
    command.add_option("--link", m_link, "Tasks with a link: yes, no or off");
    command.add_option("--start", m_start, "The start date filter (see below)")
        ->expected(1, 3)
        ->type_name("DATES");
    command.add_option("--due", m_due, "The due date filter (see below)")
        ->expected(1, 3)
        ->type_name("DATES");
    command.add_option("--subtasks", m_subtasks, "Tasks with subtasks: yes, no or off");
    command.add_option("--pinned", m_pinned, "Pinned tasks: yes, no or off");
    command.add_option("--attachments", m_attachments, "Tasks with attachments: yes, no or off");
    const std::pair<const char*, std::vector<std::string>*> choices[] = {
        {"--lists", &m_lists},       {"--tags", &m_tags},     {"--priorities", &m_priorities},
        {"--statuses", &m_statuses}, {"--values", &m_values},
    };
    for (const auto& [name, words] : choices)
        command.add_option(name, *words, "Tasks in any of these (none: in any at all)")
            ->expected(0, CLI::detail::expected_max_vector_size)
            ->allow_extra_args()
            ->type_name("NAME");
}

void SmartListsCommand::addOptions(CLI::App& command) {
    command.require_subcommand(0, 1);
    m_add = command.add_subcommand("add", "Make a smart list");
    m_edit = command.add_subcommand("edit", "Change a smart list");
    for (CLI::App* sub : {m_add, m_edit}) {
        sub->add_option("NAME", m_name, "Its title (for edit: or identifier)")->required();
        sub->fallthrough();
    }
    // Both subcommands share the options; only one of them runs.
    addFilterOptions(*m_add);
    addFilterOptions(*m_edit);
}

platform::Result<void> SmartListsCommand::run(CommandContext& context) {
    if (m_add->parsed() || m_edit->parsed())
        return save(context);
    return print(context);
}

platform::Result<void> SmartListsCommand::print(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    auto request = TK_SmartCategory::fetchRequest();
    request.predicate = rules::predicates::parsed(rules::predicates::kHasIdentifier);
    request.sortDescriptors = {{"sortIndex", true}, {"creationDate", false}};
    auto smartLists = viewContext.fetch(request);
    if (!smartLists)
        return std::unexpected(smartLists.error());
    const rules::PredicateTime time{platform::Clock::shared().now(), localCalendar()};
    const TerminalStyle style = TerminalStyle::forOutput(context.isTerminal);
    platform::JsonWriter json;
    json.beginArray();
    for (const auto& object : *smartLists) {
        const auto& smart = static_cast<const TK_SmartCategory&>(*object);
        auto tasks = store::TK_Task::fetchRequest();
        tasks.predicate = objectstore::andPredicate(
            {store::smartPredicate(smart, time), rules::predicates::validTask()});
        auto count = viewContext.count(tasks);
        if (!count)
            return std::unexpected(count.error());
        const std::string title = smart.title().value_or("");
        const std::string id = smart.identifier().value_or("");
        if (context.json)
            json.beginObject()
                .key("identifier")
                .string(id)
                .key("title")
                .string(title)
                .key("tasks")
                .integer(static_cast<std::int64_t>(*count))
                .endObject();
        else
            context.out << fmt::format("{}\t{} tasks\t{}\n",
                                       style.paint(TerminalStyle::Tone::list, title), *count,
                                       style.paint(TerminalStyle::Tone::dim, id));
    }
    json.endArray();
    if (context.json)
        context.out << json.finish().value();
    return {};
}

platform::Result<void> SmartListsCommand::save(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    std::shared_ptr<TK_SmartCategory> smart;
    if (m_add->parsed()) {
        if (m_name.empty())
            return fail(Errc::invalidArgument, "a smart list needs a title");
        smart = TK_SmartCategory::insertNew(viewContext);
        smart->setIdentifier(platform::Uuid::generate().toString());
        smart->setTitle(m_name);
        smart->setCreationDate(platform::Clock::shared().now());
    } else {
        auto found = findNamed<TK_SmartCategory>(viewContext, m_name);
        if (!found)
            return std::unexpected(found.error());
        smart = *found;
    }
    auto& s = *smart;
    using S = TK_SmartCategory;
    Result<void> ok;
    const auto three = [&]<class E>(const std::optional<std::string>& text, std::string_view option,
                                    void (S::*set)(E)) {
        if (!ok || !text)
            return;
        auto value = offNoYes<E>(option, *text);
        if (!value)
            ok = std::unexpected(value.error());
        else
            (s.*set)(*value);
    };
    if (m_title)
        s.setTitle(*m_title);
    three(m_completed, "--completed",
          static_cast<void (S::*)(rules::TK_CompletedFilter)>(&S::setCompletedFilter));
    three(m_notes, "--notes", static_cast<void (S::*)(rules::TK_NotesFilter)>(&S::setNotesFilter));
    three(m_link, "--link", static_cast<void (S::*)(rules::TK_URLFilter)>(&S::setUrlFilter));
    three(m_subtasks, "--subtasks",
          static_cast<void (S::*)(rules::TK_SubtaskFilter)>(&S::setSubtaskFilter));
    three(m_pinned, "--pinned", static_cast<void (S::*)(rules::TK_PinFilter)>(&S::setPinFilter));
    three(m_attachments, "--attachments",
          static_cast<void (S::*)(rules::TK_AttachmentsSmartFilter)>(&S::setAttachmentsFilter));
    if (!ok)
        return ok;
    using F = rules::TK_ReminderFilter;
    using RD = rules::TK_RelativeDate;
    if (!m_start.empty())
        if (auto set = setDateFilter(s,
                                     {static_cast<void (S::*)(F)>(&S::setStartDateFilter),
                                      &S::setStartDateFromDate, &S::setStartDateToDate,
                                      static_cast<void (S::*)(RD)>(&S::setStartDateRelativeDate)},
                                     "--start", m_start);
            !set)
            return set;
    if (!m_due.empty())
        if (auto set = setDateFilter(s,
                                     {static_cast<void (S::*)(F)>(&S::setReminderFilter),
                                      &S::setReminderFromDate, &S::setReminderToDate,
                                      static_cast<void (S::*)(RD)>(&S::setReminderRelativeDate)},
                                     "--due", m_due);
            !set)
            return set;
    // The choice options of whichever subcommand ran.
    const auto given = [this](const char* name) {
        CLI::App* sub = m_add->parsed() ? m_add : m_edit;
        return sub->get_option(name)->count() > 0;
    };
    Result<void> chosen;
    if (given("--lists"))
        chosen = setChoice<store::TK_Category, rules::TK_CategoryFilter>(
            s, m_lists, &S::setCategoryFilter, &S::filterCategories, &S::removeFromFilterCategories,
            &S::addToFilterCategories);
    if (chosen && given("--tags"))
        chosen = setChoice<store::TK_Tag, rules::TK_TagFilter>(
            s, m_tags, &S::setTagFilter, &S::filterTags, &S::removeFromFilterTags,
            &S::addToFilterTags);
    if (chosen && given("--priorities"))
        chosen = setChoice<store::TK_Priority, rules::TK_PriorityFilter>(
            s, m_priorities, &S::setPriorityFilter, &S::filterPriorities,
            &S::removeFromFilterPriorities, &S::addToFilterPriorities);
    if (chosen && given("--statuses"))
        chosen = setChoice<store::TK_Status, rules::TK_StatusFilter>(
            s, m_statuses, &S::setStatusFilter, &S::filterStatuses, &S::removeFromFilterStatuses,
            &S::addToFilterStatuses);
    if (chosen && given("--values"))
        chosen = setChoice<store::TK_AttributeValue, rules::TK_ValueFilter>(
            s, m_values, &S::setValueFilter, &S::filterValues, &S::removeFromFilterValues,
            &S::addToFilterValues);
    if (!chosen)
        return chosen;
    if (auto saved = withStoreAdvice(viewContext.save()); !saved)
        return saved;
    const std::string id = s.identifier().value_or("");
    if (context.json)
        context.out << fmt::format("{{\n  \"identifier\": \"{}\"\n}}\n", id);
    else if (m_add->parsed())
        context.out << id << '\n';
    return {};
}

} // namespace tasket::apps
