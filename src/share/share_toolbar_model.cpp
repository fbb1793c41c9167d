#include "share/share_toolbar_model.h"

#include "platform/clock.h"
#include "platform/fatal.h"
#include "platform/main_queue.h"
#include "platform/uuid.h"
#include "share/dismiss_notification.h"
#include "share/shared_task.h"

#include <fmt/format.h>

#include <span>

namespace tasket::share {

ShareToolbarModel::ShareToolbarModel(
    std::shared_ptr<store::LocalDataFetchManager> localDataFetchManager,
    std::shared_ptr<ShareManager> shareManager, Input input,
    std::shared_ptr<settings::CustomizationManager> customizationManager,
    std::shared_ptr<store::LocalDataManager> localDataManager,
    std::shared_ptr<PendingSaves> pendingSaves, Services services)
    : m_localDataFetchManager(std::move(localDataFetchManager)),
      m_shareManager(std::move(shareManager)), m_url(std::move(input.url)),
      m_attachments(std::move(input.attachments)), m_category(std::move(input.category)),
      m_isAddingAttachmentsWithoutPremium(input.isAddingAttachmentsWithoutPremium),
      m_customizationManager(std::move(customizationManager)),
      m_localDataManager(std::move(localDataManager)), m_services(std::move(services)),
      m_pendingSaves(std::move(pendingSaves)) {}

void ShareToolbarModel::setCategory(std::shared_ptr<store::TK_Category> category) {
    m_category.set(std::move(category));
}

ShareToolbarModel::DoneOutcome ShareToolbarModel::done() {
    const std::shared_ptr<store::TK_Category> category = m_category.value();
    if (!category) {
        postDismissNotification();
        return DoneOutcome::dismissedWithoutList;
    }
    if (m_isAddingAttachmentsWithoutPremium && !m_didShowPremiumRequired) {
        m_didShowPremiumRequired = true;
        m_isDonePremiumRequiredPresented.set(true);
        return DoneOutcome::premiumRequiredShown;
    }

    if (m_didStartSave) {
        // The form is on its way out; a second press saves nothing more.
        postDismissNotification();
        return DoneOutcome::saveStarted;
    }
    m_didStartSave = true;
    NewSharedTask task{
        .taskID = platform::Uuid::generate().toString(),
        .whenCreated = platform::Clock::shared().now(),
        .title = m_shareManager->text().value(),
        .url = m_url,
        .attachments = std::move(m_attachments), // up to 64 MiB each: moved, not copied
        .defaults = NewTaskDefaults::read(*m_customizationManager),
    };
    m_pendingSaves->begin();
    platform::MainQueue::shared().post(
        [task = std::move(task), category, localDataManager = m_localDataManager,
         dataManager = m_services.dataManager, pendingSaves = m_pendingSaves]() mutable {
            const std::string taskID = task.taskID;
            insertSharedTask(std::move(task), category);
            auto& context = *localDataManager->viewContext();
            auto saved = saveContext(context);
            if (saved && dataManager)
                for (const auto& failure : dataManager->didSave(
                         context, std::span(&taskID, 1), services::DataManager::Saved::inserted))
                    platform::warn(fmt::format("the task is saved, but {}", failure.message));
            if (saved)
                pendingSaves->finish(taskID);
            else
                pendingSaves->finish(std::unexpected(saved.error()));
        });
    postDismissNotification();
    return DoneOutcome::saveStarted;
}

void ShareToolbarModel::cancel() {
    postDismissNotification();
}

} // namespace tasket::share
