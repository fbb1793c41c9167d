// ShareManager: the form's one piece of shared state, the text of the new
// task as the user edits it, published so the text field and the toolbar
// see the same value. Use on the main queue.
#pragma once

#include "platform/published.h"

#include <string>

namespace tasket::share {

class ShareManager {
  public:
    ShareManager() = default;
    ShareManager(const ShareManager&) = delete;
    ShareManager& operator=(const ShareManager&) = delete;

    /// The text of the new task.
    const platform::Published<std::string>& text() const { return m_text; }
    void setText(std::string text) { m_text.set(std::move(text)); }

  private:
    platform::Published<std::string> m_text;
};

} // namespace tasket::share
