// The logic behind the share form's toolbar (ShareToolbarView): Cancel and
// Done. Done creates the task from the form (text, link, attachments, the
// chosen list) in a task queued on the main queue and, without waiting for
// it, posts the dismiss notification; Cancel only posts the notification.
// When files or pictures were left out for want of the paid tier, the
// first Done shows the paid-tier notice instead of saving, and the next
// one saves without them. Use on the main queue.
#pragma once

#include "cloud/cloud_data_manager.h"
#include "platform/published.h"
#include "services/authentication_manager.h"
#include "services/data_manager.h"
#include "settings/customization_manager.h"
#include "share/attachment_payload.h"
#include "share/pending_saves.h"
#include "share/share_manager.h"
#include "store/local_data_fetch_manager.h"
#include "store/local_data_manager.h"
#include "store/records.h"

#include <memory>
#include <string>
#include <vector>

namespace tasket::share {

class ShareToolbarModel {
  public:
    struct Input {
        std::string url;
        std::vector<AttachmentPayload> attachments;
        std::shared_ptr<store::TK_Category> category;
        bool isAddingAttachmentsWithoutPremium = false;
    };

    /// What one press of Done did.
    enum class DoneOutcome {
        dismissedWithoutList, // no list chosen: dismissed, nothing written
        premiumRequiredShown, // the paid-tier notice is shown; nothing saved yet
        saveStarted,          // the save is queued and the form dismissed
    };

    /// The managers beyond the store and settings; any may be null. After a
    /// save, the data manager brings the new task's reminders and calendar
    /// item up to date.
    struct Services {
        std::shared_ptr<services::DataManager> dataManager;
        std::shared_ptr<services::AuthenticationManager> authenticationManager;
        std::shared_ptr<cloud::CloudDataManager> cloudDataManager;
    };

    /// Collaborators must not be null. `pendingSaves` learns of every save
    /// started and its outcome.
    ShareToolbarModel(std::shared_ptr<store::LocalDataFetchManager> localDataFetchManager,
                      std::shared_ptr<ShareManager> shareManager, Input input,
                      std::shared_ptr<settings::CustomizationManager> customizationManager,
                      std::shared_ptr<store::LocalDataManager> localDataManager,
                      std::shared_ptr<PendingSaves> pendingSaves, Services services = {});

    // ---- State, in field order -------------------------------------------------------

    const std::shared_ptr<services::DataManager>& dataManager() const {
        return m_services.dataManager;
    }
    const std::shared_ptr<store::LocalDataFetchManager>& localDataFetchManager() const {
        return m_localDataFetchManager;
    }
    const std::shared_ptr<ShareManager>& shareManager() const { return m_shareManager; }
    const std::shared_ptr<services::AuthenticationManager>& authenticationManager() const {
        return m_services.authenticationManager;
    }
    const platform::Published<bool>& isDonePremiumRequiredPresented() const {
        return m_isDonePremiumRequiredPresented;
    }
    const std::string& url() const { return m_url; }
    const std::vector<AttachmentPayload>& attachments() const { return m_attachments; }
    const platform::Published<std::shared_ptr<store::TK_Category>>& category() const {
        return m_category;
    }
    bool isAddingAttachmentsWithoutPremium() const { return m_isAddingAttachmentsWithoutPremium; }
    const std::shared_ptr<cloud::CloudDataManager>& cloudDataManager() const {
        return m_services.cloudDataManager;
    }
    const std::shared_ptr<settings::CustomizationManager>& customizationManager() const {
        return m_customizationManager;
    }
    const std::shared_ptr<store::LocalDataManager>& localDataManager() const {
        return m_localDataManager;
    }

    // ---- Actions -----------------------------------------------------------------------

    /// The list the task goes into; nullptr: none chosen.
    void setCategory(std::shared_ptr<store::TK_Category> category);
    /// Hides the paid-tier notice.
    void dismissPremiumRequired() { m_isDonePremiumRequiredPresented.set(false); }

    /// Done, as the class comment says. The save reports to the pending
    /// saves: the new taskID, or the save's error. Once a save has started,
    /// a further press only dismisses. The attachments move into the save.
    DoneOutcome done();
    /// Cancel: posts the dismiss notification; nothing is written.
    void cancel();

  private:
    std::shared_ptr<store::LocalDataFetchManager> m_localDataFetchManager;
    std::shared_ptr<ShareManager> m_shareManager;
    platform::Published<bool> m_isDonePremiumRequiredPresented{false};
    std::string m_url;
    std::vector<AttachmentPayload> m_attachments;
    platform::Published<std::shared_ptr<store::TK_Category>> m_category;
    bool m_isAddingAttachmentsWithoutPremium = false;
    std::shared_ptr<settings::CustomizationManager> m_customizationManager;
    std::shared_ptr<store::LocalDataManager> m_localDataManager;

    Services m_services; // dataManager, authenticationManager, cloudDataManager
    std::shared_ptr<PendingSaves> m_pendingSaves;
    bool m_didShowPremiumRequired = false;
    bool m_didStartSave = false;
};

} // namespace tasket::share
