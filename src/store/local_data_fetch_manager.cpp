#include "store/local_data_fetch_manager.h"

#include "rules/predicates.h"
#include "settings/settings_keys.h"

#include <fmt/core.h>

#include <stdexcept>
#include <utility>

namespace tasket::store {

using objectstore::BatchedResults;
using objectstore::FetchedResultsController;
using objectstore::FetchRequest;
using objectstore::Predicate;
using objectstore::SortDescriptor;
using platform::Result;

namespace keys = settings::keys;
namespace predicates = rules::predicates;

namespace {

// Which search text narrows a collection.
enum class Search { none, objects, tasks, subtasks };

template <class Record>
using CollectionField =
    LocalDataFetchManager::Published<FetchedCollection<Record>> LocalDataFetchManager::*;

template <class Record, CollectionField<Record> Field>
void publishInto(LocalDataFetchManager& manager, std::shared_ptr<const BatchedResults> results) {
    (manager.*Field).set(FetchedCollection<Record>(std::move(results)));
}

constexpr std::size_t indexOf(CollectionKind kind) {
    return static_cast<std::size_t>(kind);
}

} // namespace

// Everything that differs between the twelve collections, in one row each.
struct LocalDataFetchManager::Slot {
    CollectionKind kind;
    std::string_view entity;
    std::string_view predicate; // the collection's own predicate
    std::size_t batchSize;
    std::string_view creationKey; // the creation instant: newest first when nothing else decides
    Search search;
    // What numberOfTasks counts; empty: nothing, the tie-breaks decide.
    std::string_view countKeyPath;
    std::unique_ptr<FetchedResultsController> LocalDataFetchManager::*controller;
    void (*publish)(LocalDataFetchManager&, std::shared_ptr<const BatchedResults>);
    // Sort settings (organising kinds only).
    Published<TK_ObjectsSortOrder> LocalDataFetchManager::*order = nullptr;
    Published<TK_ObjectsSortOrderDirection> LocalDataFetchManager::*direction = nullptr;
    std::string_view orderKey = {};
    std::string_view directionKey = {};
};

const std::array<LocalDataFetchManager::Slot, kCollectionKindCount>&
LocalDataFetchManager::slots() {
    using M = LocalDataFetchManager;
    using K = CollectionKind;
    // Folders hold lists and attributes hold values rather than tasks, so
    // those are what they count; a smart list holds no tasks of its own.
    static const std::array<Slot, kCollectionKindCount> table{{
        {K::folders, TK_Folder::entityName, predicates::kHasIdentifier, 20, "creationDate",
         Search::objects, "categories.@count", &M::m_foldersController,
         &publishInto<TK_Folder, &M::m_folders>, &M::m_foldersSortOrder,
         &M::m_foldersSortOrderDirection, keys::kFoldersSortOrder,
         keys::kFoldersSortOrderDirection},
        {K::smartCategories, TK_SmartCategory::entityName, predicates::kHasIdentifier, 20,
         "creationDate", Search::objects, "", &M::m_smartCategoriesController,
         &publishInto<TK_SmartCategory, &M::m_smartCategories>, &M::m_smartCategoriesSortOrder,
         &M::m_smartCategoriesSortOrderDirection, keys::kSmartCategoriesSortOrder,
         keys::kSmartCategoriesSortDirection},
        {K::categories, TK_Category::entityName, predicates::kListedCategory, 20, "whenCreated",
         Search::objects, "tasks.@count", &M::m_categoriesController,
         &publishInto<TK_Category, &M::m_categories>, &M::m_categoriesSortOrder,
         &M::m_categoriesSortOrderDirection, keys::kCategoriesSortOrder,
         keys::kCategoriesSortDirection},
        {K::tags, TK_Tag::entityName, predicates::kListedTag, 20, "whenCreated", Search::objects,
         "tasks.@count", &M::m_tagsController, &publishInto<TK_Tag, &M::m_tags>,
         &M::m_tagsSortOrder, &M::m_tagsSortOrderDirection, keys::kTagsSortOrder,
         keys::kTagsSortDirection},
        {K::priorities, TK_Priority::entityName, predicates::kListedPriority, 20, "whenCreated",
         Search::objects, "tasks.@count", &M::m_prioritiesController,
         &publishInto<TK_Priority, &M::m_priorities>, &M::m_prioritiesSortOrder,
         &M::m_prioritiesSortOrderDirection, keys::kPrioritiesSortOrder,
         keys::kPrioritiesSortDirection},
        {K::statuses, TK_Status::entityName, predicates::kListedStatus, 20, "whenCreated",
         Search::objects, "tasks.@count", &M::m_statusesController,
         &publishInto<TK_Status, &M::m_statuses>, &M::m_statusesSortOrder,
         &M::m_statusesSortOrderDirection, keys::kStatusesSortOrder, keys::kStatusesSortDirection},
        {K::attributes, TK_Attribute::entityName, predicates::kHasIdentifier, 20, "whenCreated",
         Search::objects, "values.@count", &M::m_attributesController,
         &publishInto<TK_Attribute, &M::m_attributes>, &M::m_attributesSortOrder,
         &M::m_attributesSortOrderDirection, keys::kCustomAttributesSortOrder,
         keys::kCustomAttributesSortOrderDirection},
        {K::values, TK_AttributeValue::entityName, predicates::kListedValue, 20, "whenCreated",
         Search::objects, "tasks.@count", &M::m_valuesController,
         &publishInto<TK_AttributeValue, &M::m_values>, &M::m_valuesSortOrder,
         &M::m_valuesSortOrderDirection, keys::kValuesSortOrder, keys::kValuesSortDirection},
        {K::sections, TK_BoardSection::entityName, predicates::kHasIdentifier, 1, "creationDate",
         Search::none, "", &M::m_sectionsController, &publishInto<TK_BoardSection, &M::m_sections>},
        {K::tasks, TK_Task::entityName, predicates::kValidTask, 1, "whenCreated", Search::tasks, "",
         &M::m_tasksController, &publishInto<TK_Task, &M::m_tasks>},
        {K::subtasks, TK_Subtask::entityName, predicates::kListedSubtask, 1, "whenCreated",
         Search::subtasks, "", &M::m_subtasksController, &publishInto<TK_Subtask, &M::m_subtasks>},
        {K::attachments, TK_Attachment::entityName, predicates::kHasIdentifier, 1, "creationDate",
         Search::none, "", &M::m_attachmentsController,
         &publishInto<TK_Attachment, &M::m_attachments>},
    }};
    return table;
}

namespace {

template <class E>
E storedCase(const platform::PreferencesSuite& suite, std::string_view key, E fallback) {
    if (const auto code = suite.integerValue(key))
        if (const auto value = rules::fromStored<E>(*code))
            return *value;
    return fallback;
}

} // namespace

// ---- Start-up ------------------------------------------------------------------------

CollectionKinds collectionKinds(std::initializer_list<CollectionKind> kinds) {
    CollectionKinds out;
    for (const CollectionKind kind : kinds)
        out.set(static_cast<std::size_t>(kind));
    return out;
}

LocalDataFetchManager::LocalDataFetchManager(
    std::shared_ptr<LocalDataManager> localDataManager,
    std::shared_ptr<settings::CustomizationManager> customizationManager,
    std::shared_ptr<settings::FocusManager> focusManager)
    : m_localDataManager(std::move(localDataManager)),
      m_customizationManager(std::move(customizationManager)),
      m_focusManager(std::move(focusManager)) {
    if (!m_localDataManager || !m_customizationManager || !m_focusManager)
        throw std::invalid_argument("LocalDataFetchManager needs all three collaborators");
}

LocalDataFetchManager::~LocalDataFetchManager() = default;

Result<std::unique_ptr<LocalDataFetchManager>>
LocalDataFetchManager::make(std::shared_ptr<LocalDataManager> localDataManager,
                            std::shared_ptr<settings::CustomizationManager> customizationManager,
                            std::shared_ptr<settings::FocusManager> focusManager,
                            CollectionKinds kept) {
    std::unique_ptr<LocalDataFetchManager> manager(new LocalDataFetchManager(
        std::move(localDataManager), std::move(customizationManager), std::move(focusManager)));
    manager->m_kept = kept;
    manager->readSortSettings();
    for (const Slot& slot : slots())
        if (auto ok = manager->rebuild(slot.kind); !ok)
            return std::unexpected(ok.error());
    LocalDataFetchManager* self = manager.get();
    manager->m_focusCategoriesSubscription = manager->m_focusManager->categories().subscribe(
        [self](const auto&) { self->focusDidChange(); });
    manager->m_isFocusedSubscription =
        manager->m_focusManager->isFocused().subscribe([self](bool) { self->focusDidChange(); });
    return manager;
}

void LocalDataFetchManager::readSortSettings() {
    const auto& suite = *m_customizationManager->appGroupSuite();
    for (const Slot& slot : slots()) {
        if (!slot.order)
            continue;
        (this->*slot.order).set(storedCase(suite, slot.orderKey, kDefaultObjectsSortOrder));
        (this->*slot.direction)
            .set(storedCase(suite, slot.directionKey, kDefaultObjectsSortOrderDirection));
    }
}

// ---- Requests and controllers ------------------------------------------------------------

namespace {

// The chosen order, then the newest first, then (added by the engine) the key.
std::vector<SortDescriptor> sortDescriptors(std::string_view creationKey,
                                            std::string_view countKeyPath,
                                            TK_ObjectsSortOrder order,
                                            TK_ObjectsSortOrderDirection direction) {
    const bool ascending = direction == TK_ObjectsSortOrderDirection::ascending;
    const SortDescriptor newestFirst{std::string(creationKey), false};
    switch (order) {
    case TK_ObjectsSortOrder::alphabetical:
        return {{"title", ascending, SortDescriptor::Comparison::localizedCaseInsensitive},
                newestFirst};
    case TK_ObjectsSortOrder::numberOfTasks:
        if (countKeyPath.empty())
            return {newestFirst};
        return {{std::string(countKeyPath), ascending}, newestFirst};
    case TK_ObjectsSortOrder::creationDate: return {{std::string(creationKey), ascending}};
    case TK_ObjectsSortOrder::custom: return {{"sortIndex", ascending}, newestFirst};
    }
    throw std::invalid_argument("not a case of TK_ObjectsSortOrder");
}

} // namespace

FetchRequest LocalDataFetchManager::fetchRequest(CollectionKind kind) const {
    const Slot& slot = slots()[indexOf(kind)];
    FetchRequest request{std::string(slot.entity)};
    request.fetchBatchSize = slot.batchSize;

    std::vector<Predicate> parts{predicates::parsed(slot.predicate)};
    const std::string* searchText = nullptr;
    switch (slot.search) {
    case Search::none: break;
    case Search::objects: searchText = &m_objectsSearchText.value(); break;
    case Search::tasks: searchText = &m_tasksSearchText.value(); break;
    case Search::subtasks: searchText = &m_subtasksSearchText.value(); break;
    }
    if (searchText && !searchText->empty())
        parts.push_back(predicates::titleContains(*searchText));
    if (kind == CollectionKind::tasks)
        if (auto focus = effectiveFocus())
            parts.push_back(predicates::inCategories(*focus));
    request.predicate =
        parts.size() == 1 ? parts.front() : objectstore::andPredicate(std::move(parts));

    if (slot.order)
        request.sortDescriptors =
            sortDescriptors(slot.creationKey, slot.countKeyPath, (this->*slot.order).value(),
                            (this->*slot.direction).value());
    else
        request.sortDescriptors = {{std::string(slot.creationKey), false}};
    return request;
}

Result<void> LocalDataFetchManager::rebuild(CollectionKind kind) {
    if (!isKept(kind))
        return {};
    const Slot& slot = slots()[indexOf(kind)];
    std::optional<std::vector<std::string>> focus;
    if (kind == CollectionKind::tasks)
        focus = effectiveFocus();
    auto controller = std::make_unique<FetchedResultsController>(m_localDataManager->viewContext(),
                                                                 fetchRequest(kind));
    controller->setDelegate([this, kind](const objectstore::CollectionChange&) { publish(kind); });
    if (auto ok = controller->performFetch(); !ok)
        return std::unexpected(platform::Error{
            ok.error().code, fmt::format("cannot fetch {}: {}", slot.entity, ok.error().message)});
    this->*slot.controller = std::move(controller);
    if (kind == CollectionKind::tasks)
        m_appliedFocus = std::move(focus);
    publish(kind);
    return {};
}

void LocalDataFetchManager::publish(CollectionKind kind) {
    const Slot& slot = slots()[indexOf(kind)];
    const FetchedResultsController& controller = *(this->*slot.controller);
    slot.publish(*this,
                 std::make_shared<const BatchedResults>(m_localDataManager->viewContext(),
                                                        controller.objectIDs(), slot.batchSize));
}

const FetchedResultsController& LocalDataFetchManager::controller(CollectionKind kind) const {
    if (!isKept(kind))
        throw std::logic_error("this manager does not keep that collection");
    return *(this->*slots().at(indexOf(kind)).controller);
}

// ---- Search ----------------------------------------------------------------------------

Result<void> LocalDataFetchManager::setSearchText(Published<std::string>& field, std::string text,
                                                  CollectionKind first, CollectionKind last) {
    if (text == field.value())
        return {};
    field.set(std::move(text));
    Result<void> outcome;
    for (std::size_t i = indexOf(first); i <= indexOf(last); ++i)
        if (auto ok = rebuild(static_cast<CollectionKind>(i)); !ok && outcome)
            outcome = std::move(ok);
    return outcome;
}

Result<void> LocalDataFetchManager::setObjectsSearchText(std::string text) {
    return setSearchText(m_objectsSearchText, std::move(text), CollectionKind::folders,
                         CollectionKind::values);
}

Result<void> LocalDataFetchManager::setTasksSearchText(std::string text) {
    return setSearchText(m_tasksSearchText, std::move(text), CollectionKind::tasks,
                         CollectionKind::tasks);
}

Result<void> LocalDataFetchManager::setSubtasksSearchText(std::string text) {
    return setSearchText(m_subtasksSearchText, std::move(text), CollectionKind::subtasks,
                         CollectionKind::subtasks);
}

// ---- Sort settings ---------------------------------------------------------------------

namespace {

void requireSortSettings(CollectionKind kind) {
    if (!hasSortSettings(kind))
        throw std::invalid_argument("this collection has no sort order of its own");
}

// A write the suite refused; an unavailable suite skips the write, as every
// setting does.
Result<void> written(Result<void> outcome) {
    if (!outcome && outcome.error().code == platform::Errc::unavailable)
        return {};
    return outcome;
}

} // namespace

const LocalDataFetchManager::Published<TK_ObjectsSortOrder>&
LocalDataFetchManager::sortOrder(CollectionKind kind) const {
    requireSortSettings(kind);
    return this->*slots()[indexOf(kind)].order;
}

const LocalDataFetchManager::Published<TK_ObjectsSortOrderDirection>&
LocalDataFetchManager::sortOrderDirection(CollectionKind kind) const {
    requireSortSettings(kind);
    return this->*slots()[indexOf(kind)].direction;
}

Result<void> LocalDataFetchManager::setSortOrder(CollectionKind kind, TK_ObjectsSortOrder order) {
    requireSortSettings(kind);
    const Slot& slot = slots()[indexOf(kind)];
    // Written even when unchanged, so the suite holds what the user chose.
    auto write = written(
        m_customizationManager->appGroupSuite()->setValue(slot.orderKey, rules::toStored(order)));
    if ((this->*slot.order).value() != order) {
        (this->*slot.order).set(order);
        if (auto ok = rebuild(kind); !ok)
            return ok;
    }
    return write;
}

Result<void> LocalDataFetchManager::setSortOrderDirection(CollectionKind kind,
                                                          TK_ObjectsSortOrderDirection direction) {
    requireSortSettings(kind);
    const Slot& slot = slots()[indexOf(kind)];
    auto write = written(m_customizationManager->appGroupSuite()->setValue(
        slot.directionKey, rules::toStored(direction)));
    if ((this->*slot.direction).value() != direction) {
        (this->*slot.direction).set(direction);
        if (auto ok = rebuild(kind); !ok)
            return ok;
    }
    return write;
}

// ---- Focus -------------------------------------------------------------------------------

std::optional<std::vector<std::string>> LocalDataFetchManager::effectiveFocus() const {
    // A focus filter that selects no list leaves every task in view.
    if (!m_focusManager->isFocused().value() || m_focusManager->categories().value().empty())
        return std::nullopt;
    return m_focusManager->categories().value();
}

void LocalDataFetchManager::focusDidChange() {
    if (effectiveFocus() == m_appliedFocus)
        return;
    // A failed fetch leaves the tasks as they were; the next change tries again.
    (void)rebuild(CollectionKind::tasks);
}

} // namespace tasket::store
