#include "settings/focus_manager.h"

namespace tasket::settings {

void FocusManager::focus(std::vector<std::string> categoryIDs) {
    // Both values are in place before either notification runs, so an
    // observer of one always reads a consistent other.
    m_categories.set(std::move(categoryIDs));
    if (!m_isFocused.value())
        m_isFocused.set(true);
}

void FocusManager::unfocus() {
    if (m_isFocused.value())
        m_isFocused.set(false);
    if (!m_categories.value().empty())
        m_categories.set({});
}

} // namespace tasket::settings
