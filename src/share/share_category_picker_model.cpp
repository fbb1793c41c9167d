#include "share/share_category_picker_model.h"

#include "rules/predicates.h"
#include "share/category_choice.h"

#include <algorithm>

namespace tasket::share {

ShareCategoryPickerModel::ShareCategoryPickerModel(
    bool isExcludingCompletedTasks,
    std::shared_ptr<store::LocalDataFetchManager> localDataFetchManager,
    std::shared_ptr<store::TK_Category> selectedCategory, Selection onSelect)
    : m_isExcludingCompletedTasks(isExcludingCompletedTasks),
      m_localDataFetchManager(std::move(localDataFetchManager)),
      m_selectedCategory(std::move(selectedCategory)), m_onSelect(std::move(onSelect)) {}

std::vector<std::shared_ptr<store::TK_Category>> ShareCategoryPickerModel::categories() const {
    return store::offeredCategories(m_localDataFetchManager->categories().value());
}

std::size_t ShareCategoryPickerModel::numberOfTasks(const store::TK_Category& category) const {
    // A stored list's tasks are counted by the store: loading them all to
    // count them would read every task of a large store into memory.
    namespace predicates = rules::predicates;
    if (auto* context = category.context(); context && !category.objectID().isTemporary()) {
        objectstore::FetchRequest request{std::string(store::TK_Task::entityName)};
        request.predicate =
            predicates::parsed(predicates::kInCategoryObject, {category.objectID()});
        if (m_isExcludingCompletedTasks)
            request.predicate =
                objectstore::andPredicate({*request.predicate, predicates::notCompleted()});
        if (auto counted = context->count(request))
            return *counted;
    }
    const auto tasks = category.tasks();
    if (!m_isExcludingCompletedTasks)
        return tasks.size();
    return static_cast<std::size_t>(
        std::ranges::count_if(tasks, [](const auto& task) { return !task->isCompleted(); }));
}

void ShareCategoryPickerModel::select(std::shared_ptr<store::TK_Category> category) {
    m_selectedCategory.set(category);
    if (m_onSelect)
        m_onSelect(category);
}

platform::Result<std::shared_ptr<store::TK_Category>>
ShareCategoryPickerModel::createCategory(std::string_view title) {
    if (title.empty())
        return platform::fail(platform::Errc::invalidArgument, "a new list needs a title");
    auto category =
        insertNewCategory(*m_localDataFetchManager->localDataManager()->viewContext(), title);
    select(category);
    dismissSheet();
    return category;
}

} // namespace tasket::share
