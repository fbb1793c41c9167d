#include "tasket/task_selection.h"

#include "common/task_report.h"
#include "rules/enum_table.h"
#include "rules/predicates.h"
#include "settings/focus_filter.h"
#include "store/smart_filters.h"
#include "tasket/named_objects.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace tasket::apps {

namespace predicates = rules::predicates;
using objectstore::Predicate;

namespace {

std::string quickFilterNames() {
    std::vector<std::string_view> names;
    for (const auto filter : rules::allCases<rules::TK_TasksFilter>())
        names.push_back(rules::caseName(filter));
    return fmt::format("{}", fmt::join(names, ", "));
}

} // namespace

void TaskSelection::addOptions(CLI::App& command) {
    command.add_option("--list", m_list, "Only the tasks of this list (title or identifier)")
        ->type_name("NAME");
    command
        .add_option("--smart", m_smart,
                    "Only the tasks this smart list shows (title or identifier)")
        ->type_name("NAME");
    command
        .add_option("--filter", m_filter,
                    "Only tasks a quick filter keeps: " + quickFilterNames() +
                        " (custom: the filters of --list)")
        ->type_name("FILTER");
    command.add_option("--tag", m_tag, "Only tasks with this tag")->type_name("TAG");
    command.add_option("--priority", m_priority, "Only tasks with this priority")
        ->type_name("PRIORITY");
    command.add_option("--status", m_status, "Only tasks with this status")->type_name("STATUS");
    auto* completed = command.add_flag("--completed", m_completed, "Only completed tasks");
    command.add_flag("--pending", m_pending, "Only tasks not completed")->excludes(completed);
    command.add_option("--search", m_search, "Only tasks whose titles hold TEXT, ignoring case")
        ->type_name("TEXT");
}

platform::Result<objectstore::FetchRequest>
TaskSelection::request(objectstore::ObjectContext& context,
                       const rules::PredicateTime& time) const {
    std::vector<Predicate> parts;
    std::shared_ptr<store::TK_Category> list;
    if (!m_list.empty()) {
        auto found = findNamed<store::TK_Category>(context, m_list);
        if (!found)
            return std::unexpected(found.error());
        list = *found;
        parts.push_back(rules::categoryMembership(list->categoryID().value_or("")));
    }
    if (!m_smart.empty()) {
        auto found = findNamed<store::TK_SmartCategory>(context, m_smart);
        if (!found)
            return std::unexpected(found.error());
        parts.push_back(store::smartPredicate(**found, time));
    }
    if (!m_filter.empty()) {
        const auto filter = rules::fromCaseName<rules::TK_TasksFilter>(m_filter);
        if (!filter)
            return platform::fail(platform::Errc::invalidArgument,
                                  fmt::format("there is no quick filter \"{}\"; the filters are {}",
                                              m_filter, quickFilterNames()));
        if (*filter == rules::TK_TasksFilter::custom && !list)
            return platform::fail(platform::Errc::invalidArgument,
                                  "--filter custom uses a list's own filters: name it with --list");
        std::vector<rules::SmartFilterValues> custom;
        if (*filter == rules::TK_TasksFilter::custom)
            for (const auto& smartCategory : list->filters())
                custom.push_back(store::smartFilterValues(*smartCategory));
        if (auto predicate = rules::quickFilterPredicate(filter, custom, time))
            parts.push_back(*predicate);
    }
    if (!m_tag.empty()) {
        auto found = findNamed<store::TK_Tag>(context, m_tag);
        if (!found)
            return std::unexpected(found.error());
        parts.push_back(rules::tagMembership((*found)->tagID().value_or("")));
    }
    if (!m_priority.empty()) {
        auto found = findNamed<store::TK_Priority>(context, m_priority);
        if (!found)
            return std::unexpected(found.error());
        parts.push_back(rules::priorityMembership((*found)->priorityID().value_or("")));
    }
    if (!m_status.empty()) {
        auto found = findNamed<store::TK_Status>(context, m_status);
        if (!found)
            return std::unexpected(found.error());
        parts.push_back(rules::statusMembership((*found)->statusID().value_or("")));
    }
    if (m_completed || m_pending)
        parts.push_back(predicates::parsed(predicates::kIsCompleted, {m_completed}));
    if (!m_search.empty())
        parts.push_back(predicates::titleContains(m_search));
    // A focus set on the desktop narrows the tasks as it narrows the
    // application's own task collections (no list at all: no narrowing).
    if (auto focus = settings::storedFocus(*openSettings()->appGroupSuite());
        focus && !focus->empty())
        parts.push_back(predicates::inCategories(*focus));
    // Whether a task is whole comes last: it holds for nearly every task,
    // and SQLite mostly tests a table's terms in the order written, so the
    // selective ones should reject first.
    parts.push_back(predicates::validTask());

    auto request = store::TK_Task::fetchRequest();
    request.predicate = objectstore::andPredicate(std::move(parts));
    request.sortDescriptors = {{"whenCreated", false}};
    request.fetchBatchSize = kBatchSize;
    request.prefetchedRelationships = kReportedRelationships;
    request.propertiesToFetch = kReportedAttributes;
    return request;
}

} // namespace tasket::apps
