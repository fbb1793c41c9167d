// The automation entities: tasks, task lists and focus-filter lists as
// value copies that shortcuts, focus modes and `tasket entities` name and
// resolve. Each kind has a query that resolves identifiers (each record
// kind by its own identifier key: taskID, categoryID, tagID, priorityID,
// statusID, a value's identifier), offers suggestions and finds entities by
// text in their titles. TK_FocusFilter is the focus filter's configuration.
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "platform/preferences/preferences_suite.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tasket::services {

/// A task list of any kind: category, tag, priority, status or attribute value.
struct TK_TasksListAppEntity {
    std::string id;
    std::string title;
    std::string notes;
    std::string color;
    std::string icon;
    std::string type; // "category", "tag", "priority", "status" or "value"
};

struct TK_TaskAppEntity {
    std::string id;
    std::string title;
    std::string notes;
    std::string color;
    bool isCompleted = false;
    std::optional<TK_TasksListAppEntity> category; // its list
};

/// A list (category) that a focus filter can select.
struct TK_FocusFilterCategoryAppEntity {
    std::string id;
    std::string title;
    std::string notes;
    std::string icon;
};

/// The focus filter's configuration: the lists it selects.
struct TK_FocusFilter {
    std::vector<TK_FocusFilterCategoryAppEntity> categories;

    /// Makes this focus the active one in `suite` (every FocusManager that
    /// follows it follows). Fails when the suite cannot be written.
    [[nodiscard]] platform::Result<> perform(platform::PreferencesSuite& suite) const;
};

// Every query reads through one context, on that context's queue; results
// come in the order the store keeps (lists by their sort position, tasks
// newest first). A fetch failure is returned.

class TK_TasksAppEntityQuery {
  public:
    explicit TK_TasksAppEntityQuery(objectstore::ObjectContext& context) : m_context(context) {}
    /// The tasks with these identifiers; unknown ones are left out.
    [[nodiscard]] platform::Result<std::vector<TK_TaskAppEntity>>
    entities(std::span<const std::string> identifiers);
    /// The tasks still to do, newest first, at most kSuggestions of them.
    [[nodiscard]] platform::Result<std::vector<TK_TaskAppEntity>> suggestedEntities();
    /// The tasks whose title holds `text`, ignoring case.
    [[nodiscard]] platform::Result<std::vector<TK_TaskAppEntity>> entities(std::string_view text);

    static constexpr std::size_t kSuggestions = 20;

  private:
    objectstore::ObjectContext& m_context;
};

class TK_TasksListAppEntityQuery {
  public:
    /// With `includingLists` false the lists proper (categories) are left
    /// out: tags, priorities, statuses and values remain.
    explicit TK_TasksListAppEntityQuery(objectstore::ObjectContext& context,
                                        bool includingLists = true)
        : m_context(context), m_includingLists(includingLists) {}
    [[nodiscard]] platform::Result<std::vector<TK_TasksListAppEntity>>
    entities(std::span<const std::string> identifiers);
    /// Every task list that is not archived, kind by kind.
    [[nodiscard]] platform::Result<std::vector<TK_TasksListAppEntity>> suggestedEntities();
    [[nodiscard]] platform::Result<std::vector<TK_TasksListAppEntity>>
    entities(std::string_view text);

  private:
    objectstore::ObjectContext& m_context;
    bool m_includingLists;
};

class TK_FocusFilterCategoryAppEntityQuery {
  public:
    explicit TK_FocusFilterCategoryAppEntityQuery(objectstore::ObjectContext& context)
        : m_context(context) {}
    [[nodiscard]] platform::Result<std::vector<TK_FocusFilterCategoryAppEntity>>
    entities(std::span<const std::string> identifiers);
    /// Every list that is not archived.
    [[nodiscard]] platform::Result<std::vector<TK_FocusFilterCategoryAppEntity>>
    suggestedEntities();
    [[nodiscard]] platform::Result<std::vector<TK_FocusFilterCategoryAppEntity>>
    entities(std::string_view text);

  private:
    objectstore::ObjectContext& m_context;
};

} // namespace tasket::services
