// LocalDataFetchManager: the live collections of every kind of record that
// the views read instead of fetching on their own. One fetched-results
// controller per kind follows the view context; whenever one reports a
// change its collection is published again. Search texts narrow the
// collections by title, each organising kind is ordered by the user's sort
// order and direction (kept in the application group's preferences), and an
// active focus filter narrows the tasks to its lists. Use on the main queue.
#pragma once

#include "objectstore/fetched_results_controller.h"
#include "platform/error.h"
#include "platform/published.h"
#include "rules/list_view_enumerations.h"
#include "settings/customization_manager.h"
#include "settings/focus_manager.h"
#include "store/fetched_collection.h"
#include "store/local_data_manager.h"
#include "store/records.h"

#include <array>
#include <bitset>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tasket::store {

using rules::TK_ObjectsSortOrder;
using rules::TK_ObjectsSortOrderDirection;

/// The twelve collections, in field order. The first eight, the organising
/// kinds shown in sidebars and pickers, have a sort order and direction of
/// their own and are narrowed by objectsSearchText.
enum class CollectionKind {
    folders,
    smartCategories,
    categories,
    tags,
    priorities,
    statuses,
    attributes,
    values,
    sections,
    tasks,
    subtasks,
    attachments,
};

inline constexpr std::size_t kCollectionKindCount = 12;

/// Whether `kind` has a sort order and direction of its own.
constexpr bool hasSortSettings(CollectionKind kind) {
    return static_cast<std::size_t>(kind) <= static_cast<std::size_t>(CollectionKind::values);
}

/// A set of collections. A process that shows only some views keeps only
/// their collections: the others are never fetched and stay empty.
using CollectionKinds = std::bitset<kCollectionKindCount>;
inline const CollectionKinds kAllCollectionKinds = CollectionKinds().set();

/// The set holding `kinds`.
CollectionKinds collectionKinds(std::initializer_list<CollectionKind> kinds);

/// Read when no valid value is stored under a sort key: the user's own
/// order, which with untouched sort indexes leaves the newest first.
inline constexpr TK_ObjectsSortOrder kDefaultObjectsSortOrder = TK_ObjectsSortOrder::custom;
inline constexpr TK_ObjectsSortOrderDirection kDefaultObjectsSortOrderDirection =
    TK_ObjectsSortOrderDirection::ascending;

class LocalDataFetchManager {
  public:
    template <class T> using Published = platform::Published<T>;

    /// Reads the sixteen sort settings, builds the twelve fetch requests,
    /// performs them through controllers on the view context and publishes
    /// every collection; only the `kept` ones when given. Fails when a fetch
    /// fails. Collaborators must not be null.
    [[nodiscard]] static platform::Result<std::unique_ptr<LocalDataFetchManager>>
    make(std::shared_ptr<LocalDataManager> localDataManager,
         std::shared_ptr<settings::CustomizationManager> customizationManager,
         std::shared_ptr<settings::FocusManager> focusManager,
         CollectionKinds kept = kAllCollectionKinds);

    /// Whether `kind`'s collection is kept (fetched and followed).
    bool isKept(CollectionKind kind) const { return m_kept.test(static_cast<std::size_t>(kind)); }

    ~LocalDataFetchManager();
    LocalDataFetchManager(const LocalDataFetchManager&) = delete;
    LocalDataFetchManager& operator=(const LocalDataFetchManager&) = delete;

    // ---- Published collections --------------------------------------------------------

    const Published<FetchedCollection<TK_Folder>>& folders() const { return m_folders; }
    const Published<FetchedCollection<TK_SmartCategory>>& smartCategories() const {
        return m_smartCategories;
    }
    const Published<FetchedCollection<TK_Category>>& categories() const { return m_categories; }
    const Published<FetchedCollection<TK_Tag>>& tags() const { return m_tags; }
    const Published<FetchedCollection<TK_Priority>>& priorities() const { return m_priorities; }
    const Published<FetchedCollection<TK_Status>>& statuses() const { return m_statuses; }
    const Published<FetchedCollection<TK_Attribute>>& attributes() const { return m_attributes; }
    const Published<FetchedCollection<TK_AttributeValue>>& values() const { return m_values; }
    const Published<FetchedCollection<TK_BoardSection>>& sections() const { return m_sections; }
    const Published<FetchedCollection<TK_Task>>& tasks() const { return m_tasks; }
    const Published<FetchedCollection<TK_Subtask>>& subtasks() const { return m_subtasks; }
    const Published<FetchedCollection<TK_Attachment>>& attachments() const { return m_attachments; }

    // ---- Search texts ----------------------------------------------------------------------

    const Published<std::string>& objectsSearchText() const { return m_objectsSearchText; }
    const Published<std::string>& tasksSearchText() const { return m_tasksSearchText; }
    const Published<std::string>& subtasksSearchText() const { return m_subtasksSearchText; }

    /// Narrows the eight organising collections to titles containing `text`
    /// (ignoring case); an empty text restores them. Fails when a fetch
    /// fails; the collections that were fetched again stay updated.
    [[nodiscard]] platform::Result<void> setObjectsSearchText(std::string text);
    /// The same for tasks.
    [[nodiscard]] platform::Result<void> setTasksSearchText(std::string text);
    /// The same for subtasks.
    [[nodiscard]] platform::Result<void> setSubtasksSearchText(std::string text);

    // ---- Sort settings ------------------------------------------------------------------------

    const Published<TK_ObjectsSortOrder>& foldersSortOrder() const { return m_foldersSortOrder; }
    const Published<TK_ObjectsSortOrderDirection>& foldersSortOrderDirection() const {
        return m_foldersSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& smartCategoriesSortOrder() const {
        return m_smartCategoriesSortOrder;
    }
    const Published<TK_ObjectsSortOrderDirection>& smartCategoriesSortOrderDirection() const {
        return m_smartCategoriesSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& categoriesSortOrder() const {
        return m_categoriesSortOrder;
    }
    const Published<TK_ObjectsSortOrderDirection>& categoriesSortOrderDirection() const {
        return m_categoriesSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& tagsSortOrder() const { return m_tagsSortOrder; }
    const Published<TK_ObjectsSortOrderDirection>& tagsSortOrderDirection() const {
        return m_tagsSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& prioritiesSortOrder() const {
        return m_prioritiesSortOrder;
    }
    const Published<TK_ObjectsSortOrderDirection>& prioritiesSortOrderDirection() const {
        return m_prioritiesSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& statusesSortOrder() const { return m_statusesSortOrder; }
    const Published<TK_ObjectsSortOrderDirection>& statusesSortOrderDirection() const {
        return m_statusesSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& attributesSortOrder() const {
        return m_attributesSortOrder;
    }
    const Published<TK_ObjectsSortOrderDirection>& attributesSortOrderDirection() const {
        return m_attributesSortOrderDirection;
    }
    const Published<TK_ObjectsSortOrder>& valuesSortOrder() const { return m_valuesSortOrder; }
    const Published<TK_ObjectsSortOrderDirection>& valuesSortOrderDirection() const {
        return m_valuesSortOrderDirection;
    }

    /// The sort order of an organising kind. Throws std::invalid_argument for
    /// a kind without sort settings (hasSortSettings).
    const Published<TK_ObjectsSortOrder>& sortOrder(CollectionKind kind) const;
    const Published<TK_ObjectsSortOrderDirection>& sortOrderDirection(CollectionKind kind) const;

    /// Writes `order` under the kind's key in the application group's suite
    /// (skipped when the suite is unavailable) and, when it differs from the
    /// current one, publishes it and sorts the collection again. Fails when
    /// the suite refuses the write or the fetch fails. Throws
    /// std::invalid_argument for a kind without sort settings.
    [[nodiscard]] platform::Result<void> setSortOrder(CollectionKind kind,
                                                      TK_ObjectsSortOrder order);
    /// The same for the direction.
    [[nodiscard]] platform::Result<void>
    setSortOrderDirection(CollectionKind kind, TK_ObjectsSortOrderDirection direction);

    // ---- Collaborators -----------------------------------------------------------------------

    const std::shared_ptr<LocalDataManager>& localDataManager() const { return m_localDataManager; }
    const std::shared_ptr<settings::CustomizationManager>& customizationManager() const {
        return m_customizationManager;
    }
    const std::shared_ptr<settings::FocusManager>& focusManager() const { return m_focusManager; }

    // ---- Controllers ---------------------------------------------------------------------------

    /// The controller behind a collection; replaced when its search, sort or
    /// focus changes, so do not keep the reference across such a change.
    /// Throws std::logic_error for a collection that is not kept.
    const objectstore::FetchedResultsController& controller(CollectionKind kind) const;

  private:
    struct Slot;
    static const std::array<Slot, kCollectionKindCount>& slots();

    LocalDataFetchManager(std::shared_ptr<LocalDataManager> localDataManager,
                          std::shared_ptr<settings::CustomizationManager> customizationManager,
                          std::shared_ptr<settings::FocusManager> focusManager);
    void readSortSettings();
    objectstore::FetchRequest fetchRequest(CollectionKind kind) const;
    /// A new controller for `kind` with its current request, fetched and published.
    [[nodiscard]] platform::Result<void> rebuild(CollectionKind kind);
    void publish(CollectionKind kind);
    [[nodiscard]] platform::Result<void> setSearchText(Published<std::string>& field,
                                                       std::string text, CollectionKind first,
                                                       CollectionKind last);
    /// The lists the tasks are narrowed to; nullopt when they are not.
    std::optional<std::vector<std::string>> effectiveFocus() const;
    void focusDidChange();

    // Published collections
    Published<FetchedCollection<TK_Folder>> m_folders;
    Published<FetchedCollection<TK_SmartCategory>> m_smartCategories;
    Published<FetchedCollection<TK_Category>> m_categories;
    Published<FetchedCollection<TK_Tag>> m_tags;
    Published<FetchedCollection<TK_Priority>> m_priorities;
    Published<FetchedCollection<TK_Status>> m_statuses;
    Published<FetchedCollection<TK_Attribute>> m_attributes;
    Published<FetchedCollection<TK_AttributeValue>> m_values;
    Published<FetchedCollection<TK_BoardSection>> m_sections;
    Published<FetchedCollection<TK_Task>> m_tasks;
    Published<FetchedCollection<TK_Subtask>> m_subtasks;
    Published<FetchedCollection<TK_Attachment>> m_attachments;

    // Published search texts
    Published<std::string> m_objectsSearchText;
    Published<std::string> m_tasksSearchText;
    Published<std::string> m_subtasksSearchText;

    // Published sort settings
    Published<TK_ObjectsSortOrder> m_foldersSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_foldersSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_smartCategoriesSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_smartCategoriesSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_categoriesSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_categoriesSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_tagsSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_tagsSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_prioritiesSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_prioritiesSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_statusesSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_statusesSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_attributesSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_attributesSortOrderDirection;
    Published<TK_ObjectsSortOrder> m_valuesSortOrder;
    Published<TK_ObjectsSortOrderDirection> m_valuesSortOrderDirection;

    // Collaborators
    std::shared_ptr<LocalDataManager> m_localDataManager;
    std::shared_ptr<settings::CustomizationManager> m_customizationManager;
    std::shared_ptr<settings::FocusManager> m_focusManager;

    // Controllers
    std::unique_ptr<objectstore::FetchedResultsController> m_foldersController;
    std::unique_ptr<objectstore::FetchedResultsController> m_smartCategoriesController;
    std::unique_ptr<objectstore::FetchedResultsController> m_categoriesController;
    std::unique_ptr<objectstore::FetchedResultsController> m_tagsController;
    std::unique_ptr<objectstore::FetchedResultsController> m_prioritiesController;
    std::unique_ptr<objectstore::FetchedResultsController> m_statusesController;
    std::unique_ptr<objectstore::FetchedResultsController> m_attributesController;
    std::unique_ptr<objectstore::FetchedResultsController> m_valuesController;
    std::unique_ptr<objectstore::FetchedResultsController> m_sectionsController;
    std::unique_ptr<objectstore::FetchedResultsController> m_tasksController;
    std::unique_ptr<objectstore::FetchedResultsController> m_subtasksController;
    std::unique_ptr<objectstore::FetchedResultsController> m_attachmentsController;

    // What the task controller's request was built with, and the
    // subscriptions that tell when it must change.
    std::optional<std::vector<std::string>> m_appliedFocus;
    CollectionKinds m_kept = kAllCollectionKinds;
    platform::Subscription m_focusCategoriesSubscription;
    platform::Subscription m_isFocusedSubscription;
};

} // namespace tasket::store
