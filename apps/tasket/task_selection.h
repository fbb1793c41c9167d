// The selectors `tasket tasks` and `tasket count` share: a list, a smart
// list, a quick filter, a tag, a priority, a status, completed or pending,
// and a title search, within the stored focus. Whatever is chosen becomes
// one fetch request whose predicate the store runs as SQL, newest task
// first, read in batches.
#pragma once

#include "objectstore/fetch_request.h"
#include "objectstore/object_context.h"
#include "platform/error.h"
#include "rules/smart_predicate.h"

#include <string>

namespace CLI {
class App;
}

namespace tasket::apps {

class TaskSelection {
  public:
    /// Rows read from the store at a time.
    static constexpr std::size_t kBatchSize = 200;

    void addOptions(CLI::App& command);

    /// The request for the chosen tasks, names resolved in `context`.
    /// Fails with notFound for a list, smart list, tag, priority or status
    /// that does not exist, and with invalidArgument for an unknown filter.
    [[nodiscard]] platform::Result<objectstore::FetchRequest>
    request(objectstore::ObjectContext& context, const rules::PredicateTime& time) const;

  private:
    std::string m_list;
    std::string m_smart;
    std::string m_filter;
    std::string m_tag;
    std::string m_priority;
    std::string m_status;
    std::string m_search;
    bool m_completed = false;
    bool m_pending = false;
};

} // namespace tasket::apps
