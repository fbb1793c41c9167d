// ShareViewController: the entry of the share intake. It is made with the
// share request, holds the store and settings owners and the form's text,
// loads the form (the shared input read, the lists fetched, one of them
// preselected) and completes the request, with no returned items, when the
// dismiss notification arrives: that is how Done and Cancel both end. Use
// on the main queue.
#pragma once

#include "platform/error.h"
#include "platform/extension/extension_context.h"
#include "platform/extension/image_converter.h"
#include "platform/notification_center.h"
#include "settings/customization_manager.h"
#include "settings/focus_manager.h"
#include "share/pending_saves.h"
#include "share/share_category_picker_model.h"
#include "share/share_manager.h"
#include "share/share_toolbar_model.h"
#include "share/shared_input.h"
#include "store/local_data_fetch_manager.h"
#include "store/local_data_manager.h"

#include <functional>
#include <memory>

namespace tasket::share {

class ShareViewController {
  public:
    /// Observes the dismiss notification from now on. Nothing may be null.
    ShareViewController(std::shared_ptr<platform::ExtensionContext> extensionContext,
                        std::shared_ptr<store::LocalDataManager> localDataManager,
                        std::shared_ptr<settings::CustomizationManager> customizationManager);
    ShareViewController(const ShareViewController&) = delete;
    ShareViewController& operator=(const ShareViewController&) = delete;

    // ---- State, in field order -------------------------------------------------------

    const std::shared_ptr<store::LocalDataManager>& localDataManager() const {
        return m_localDataManager;
    }
    const std::shared_ptr<settings::CustomizationManager>& customizationManager() const {
        return m_customizationManager;
    }
    const std::shared_ptr<ShareManager>& shareManager() const { return m_shareManager; }
    /// The preselected list; null until the form is loaded.
    const std::shared_ptr<store::TK_Category>& category() const { return m_category; }

    // ---- The form ------------------------------------------------------------------------

    /// Fetches the lists, preselects one (category_choice.h), reads the
    /// shared input and builds the toolbar and picker; then calls `ready` on
    /// the main queue. Fails when the lists cannot be fetched. `converter`
    /// must outlive the read.
    void loadForm(const platform::ImageConverter& converter,
                  std::function<void(platform::Result<void>)> ready);

    /// What the form was loaded with, once loadForm() reported success; the
    /// attachments have moved on to the toolbar.
    const SharedInput& input() const { return m_input; }
    ShareToolbarModel& toolbar() { return *m_toolbar; }
    /// The managers the toolbar is given when the form loads.
    void setServices(ShareToolbarModel::Services services) { m_services = std::move(services); }
    ShareCategoryPickerModel& picker() { return *m_picker; }
    const std::shared_ptr<store::LocalDataFetchManager>& localDataFetchManager() const {
        return m_localDataFetchManager;
    }

    /// From now on the focus follows the one stored in the settings, as
    /// another program changes it (a long-lived form; a headless share
    /// starts no watch). A suite that cannot be watched is applied once.
    void followStoredFocus();
    const std::shared_ptr<settings::FocusManager>& focusManager() const { return m_focusManager; }

    /// The saves Done started; the host waits for them before ending.
    const std::shared_ptr<PendingSaves>& pendingSaves() const { return m_pendingSaves; }
    const std::shared_ptr<platform::ExtensionContext>& extensionContext() const {
        return m_extensionContext;
    }

  private:
    void didDismiss();

    std::shared_ptr<store::LocalDataManager> m_localDataManager;
    std::shared_ptr<settings::CustomizationManager> m_customizationManager;
    std::shared_ptr<ShareManager> m_shareManager = std::make_shared<ShareManager>();
    std::shared_ptr<store::TK_Category> m_category;

    std::shared_ptr<platform::ExtensionContext> m_extensionContext;
    std::shared_ptr<PendingSaves> m_pendingSaves = std::make_shared<PendingSaves>();
    std::shared_ptr<settings::FocusManager> m_focusManager =
        std::make_shared<settings::FocusManager>();
    std::unique_ptr<platform::PreferencesObservation> m_focusObservation;
    std::shared_ptr<store::LocalDataFetchManager> m_localDataFetchManager;
    SharedInput m_input;
    std::unique_ptr<ShareToolbarModel> m_toolbar;
    ShareToolbarModel::Services m_services;
    std::unique_ptr<ShareCategoryPickerModel> m_picker;
    platform::ObserverToken m_dismissObserver;
};

} // namespace tasket::share
