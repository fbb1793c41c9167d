// The logic behind the share form's list picker (ShareCategoryPickerView):
// the lists offered, in the user's order, with how many tasks each holds
// (open tasks only when the user excludes completed ones), the selected
// list, and the sheet shown over the picker: a new list made on the spot,
// or the paid-tier notice. Use on the main queue.
#pragma once

#include "platform/published.h"
#include "store/local_data_fetch_manager.h"
#include "store/records.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace tasket::share {

enum class TK_ShareCategoryPickerSheet { newCategory, tasketPremiumRequired };

class ShareCategoryPickerModel {
  public:
    using Selection = std::function<void(const std::shared_ptr<store::TK_Category>&)>;

    /// `onSelect` hears every selection (the toolbar's list follows it).
    ShareCategoryPickerModel(bool isExcludingCompletedTasks,
                             std::shared_ptr<store::LocalDataFetchManager> localDataFetchManager,
                             std::shared_ptr<store::TK_Category> selectedCategory,
                             Selection onSelect = nullptr);

    // ---- State, in field order -------------------------------------------------------

    bool isExcludingCompletedTasks() const { return m_isExcludingCompletedTasks; }
    const std::shared_ptr<store::LocalDataFetchManager>& localDataFetchManager() const {
        return m_localDataFetchManager;
    }
    const platform::Published<std::optional<TK_ShareCategoryPickerSheet>>& currentSheet() const {
        return m_currentSheet;
    }
    const platform::Published<std::shared_ptr<store::TK_Category>>& selectedCategory() const {
        return m_selectedCategory;
    }

    // ---- What the picker shows ---------------------------------------------------------

    /// The lists a task can go into, in the user's order.
    std::vector<std::shared_ptr<store::TK_Category>> categories() const;
    /// The tasks `category` holds, completed ones left out when excluded.
    std::size_t numberOfTasks(const store::TK_Category& category) const;

    // ---- Actions -----------------------------------------------------------------------

    void select(std::shared_ptr<store::TK_Category> category);
    /// Shows `sheet` over the picker.
    void present(TK_ShareCategoryPickerSheet sheet) { m_currentSheet.set(sheet); }
    void dismissSheet() { m_currentSheet.set(std::nullopt); }
    /// The new-list sheet's Done: a list titled `title` (not saved; it is
    /// written with the task), selected, and the sheet closed. Fails with
    /// invalidArgument for an empty title.
    [[nodiscard]] platform::Result<std::shared_ptr<store::TK_Category>>
    createCategory(std::string_view title);

  private:
    bool m_isExcludingCompletedTasks;
    std::shared_ptr<store::LocalDataFetchManager> m_localDataFetchManager;
    platform::Published<std::optional<TK_ShareCategoryPickerSheet>> m_currentSheet;
    platform::Published<std::shared_ptr<store::TK_Category>> m_selectedCategory;

    Selection m_onSelect;
};

} // namespace tasket::share
