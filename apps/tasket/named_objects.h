// Finding the list, tag, priority, status, value or smart list a command
// line names: by identifier (ignoring case) first, else by title. One small
// fetch each; a name that matches nothing fails with notFound, naming the
// kind, what was typed and the titles there are.
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "store/records.h"

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::apps {

template <class Record>
[[nodiscard]] platform::Result<std::shared_ptr<Record>>
findNamed(objectstore::ObjectContext& context, std::string_view nameOrID);

extern template platform::Result<std::shared_ptr<store::TK_Category>>
findNamed<store::TK_Category>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<store::TK_Tag>>
findNamed<store::TK_Tag>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<store::TK_Priority>>
findNamed<store::TK_Priority>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<store::TK_Status>>
findNamed<store::TK_Status>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<store::TK_AttributeValue>>
findNamed<store::TK_AttributeValue>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<store::TK_SmartCategory>>
findNamed<store::TK_SmartCategory>(objectstore::ObjectContext&, std::string_view);

/// The tasks with these identifiers, in their order; fails with the first
/// identifier that names no task, before anything is changed.
[[nodiscard]] platform::Result<std::vector<std::shared_ptr<store::TK_Task>>>
findTasks(objectstore::ObjectContext& context, std::span<const std::string> identifiers);

} // namespace tasket::apps
