// The hook through which a form plugs into tasket-share. A form shows the
// loaded controller's text field, list picker and toolbar, and runs the
// event loop in which the main queue's tasks run; the user's Done or Cancel
// drive the toolbar. The program falls back to the terminal prompt when no
// form can be shown.
#pragma once

#include "platform/error.h"
#include "services/authentication_manager.h"
#include "share/share_view_controller.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tasket::apps {

class ShareForm {
  public:
    virtual ~ShareForm();
    /// Shows the form over `controller`, whose form is loaded.
    virtual void present(share::ShareViewController& controller) = 0;
    /// Runs the event loop (the main queue's tasks included) until quit().
    virtual void exec() = 0;
    virtual void quit() = 0;
    /// What went wrong in the form itself, such as a screenshot that could
    /// not be written; read after exec().
    virtual platform::Result<void> outcome() const { return {}; }
};

/// How the program asks the form to behave.
struct ShareFormSettings {
    /// Set (--screenshot): once shown, the form is drawn into this PNG file
    /// and cancelled, so nothing is written to the store.
    std::optional<std::filesystem::path> screenshot;
    /// Why shared files or pictures were refused before the form was made
    /// (one message each, naming it); the form shows them as not attached.
    std::vector<std::string> notAttached = {};
    /// The app lock: while it is locked the form shows the locked screen,
    /// and nothing of the store, until the user unlocks.
    std::shared_ptr<services::AuthenticationManager> lock = nullptr;
};

/// The form compiled into this program, ready to show on the display; null
/// when there is none (or it cannot reach the display).
std::unique_ptr<ShareForm> makeShareForm(const ShareFormSettings& settings);

} // namespace tasket::apps
