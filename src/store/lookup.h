// Finding one record by what a person or another program names it with: a
// task, subtask or list by its identifier, and a list by identifier or
// title among the lists a task can go into. Every program looks records up
// through these, so an identifier means the same thing everywhere.
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "store/fetched_collection.h"
#include "store/records.h"

#include <memory>
#include <string_view>
#include <vector>

namespace tasket::store {

/// The record of kind `Record` (TK_Task, TK_Subtask or TK_Category) whose
/// identifier is `identifier`, ignoring case, as `context` sees it (pending
/// changes included). Fails with notFound ("there is no task \"…\"") when
/// there is none, and with the store's error when the fetch fails.
template <class Record>
[[nodiscard]] platform::Result<std::shared_ptr<Record>>
findByIdentifier(objectstore::ObjectContext& context, std::string_view identifier);

extern template platform::Result<std::shared_ptr<TK_Task>>
findByIdentifier<TK_Task>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<TK_Subtask>>
findByIdentifier<TK_Subtask>(objectstore::ObjectContext&, std::string_view);
extern template platform::Result<std::shared_ptr<TK_Category>>
findByIdentifier<TK_Category>(objectstore::ObjectContext&, std::string_view);

/// Whether a task can be saved into `category` and be listed: it has a
/// non-empty identifier and title and is not archived.
bool isOfferedCategory(const TK_Category& category);

/// The offered lists of `categories` (the user's order), in that order.
std::vector<std::shared_ptr<TK_Category>>
offeredCategories(const FetchedCollection<TK_Category>& categories);

/// The list of `lists` whose identifier is `nameOrID`, else the first whose
/// title is `nameOrID`. Fails with notFound, naming it and the lists' titles.
[[nodiscard]] platform::Result<std::shared_ptr<TK_Category>>
findList(const std::vector<std::shared_ptr<TK_Category>>& lists, std::string_view nameOrID);

/// The same among the offered lists of `categories`, read from `context` a
/// batch at a time only as far as the search needs (a list named by its
/// identifier is looked up directly).
[[nodiscard]] platform::Result<std::shared_ptr<TK_Category>>
findList(const FetchedCollection<TK_Category>& categories, objectstore::ObjectContext& context,
         std::string_view nameOrID);

/// The list of `categories` whose identifier is `identifier` when it is
/// offered, looked up directly; nullptr otherwise.
std::shared_ptr<TK_Category> offeredCategoryWithID(const FetchedCollection<TK_Category>& categories,
                                                   objectstore::ObjectContext& context,
                                                   std::string_view identifier);

} // namespace tasket::store
