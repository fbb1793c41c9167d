// FocusManager: which lists the active focus filter selects. The system
// turns a focus filter on with its chosen lists and off again; views and
// LocalDataFetchManager follow the two published fields. It holds the
// lists' identifiers (categoryID), not store objects, so the store layer
// can depend on it.
#pragma once

#include "platform/published.h"

#include <string>
#include <vector>

namespace tasket::settings {

class FocusManager {
  public:
    FocusManager() = default;
    FocusManager(const FocusManager&) = delete;
    FocusManager& operator=(const FocusManager&) = delete;

    // ---- Published state ---------------------------------------------------------

    /// The identifiers (categoryID) of the lists the active focus filter selects.
    const platform::Published<std::vector<std::string>>& categories() const { return m_categories; }
    /// Whether a focus filter is active.
    const platform::Published<bool>& isFocused() const { return m_isFocused; }

    // ---- Changes from the system -----------------------------------------------------

    /// A focus filter selecting the lists `categoryIDs` became active (or
    /// changed its selection). Use on the main queue.
    void focus(std::vector<std::string> categoryIDs);
    /// The focus filter ended: no list is selected any more. Use on the main queue.
    void unfocus();

  private:
    platform::Published<std::vector<std::string>> m_categories;
    platform::Published<bool> m_isFocused{false};
};

} // namespace tasket::settings
