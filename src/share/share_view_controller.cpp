#include "share/share_view_controller.h"

#include "settings/focus_filter.h"
#include "share/category_choice.h"
#include "share/dismiss_notification.h"
#include "share/paid_tier.h"

namespace tasket::share {

ShareViewController::ShareViewController(
    std::shared_ptr<platform::ExtensionContext> extensionContext,
    std::shared_ptr<store::LocalDataManager> localDataManager,
    std::shared_ptr<settings::CustomizationManager> customizationManager)
    : m_localDataManager(std::move(localDataManager)),
      m_customizationManager(std::move(customizationManager)),
      m_extensionContext(std::move(extensionContext)) {
    m_dismissObserver = platform::NotificationCenter::defaultCenter().addObserver(
        kDismissShareExtensionNotification, nullptr, [this](const void*) { didDismiss(); });
}

void ShareViewController::followStoredFocus() {
    if (auto observation =
            settings::followStoredFocus(m_focusManager, m_customizationManager->appGroupSuite()))
        m_focusObservation = std::move(*observation);
}

void ShareViewController::didDismiss() {
    m_extensionContext->completeRequest({});
}

void ShareViewController::loadForm(const platform::ImageConverter& converter,
                                   std::function<void(platform::Result<void>)> ready) {
    // The form reads the lists alone; fetching the tasks would cost more than
    // the whole share on a large store.
    auto fetchManager = store::LocalDataFetchManager::make(
        m_localDataManager, m_customizationManager, m_focusManager,
        store::collectionKinds({store::CollectionKind::categories}));
    if (!fetchManager) {
        ready(std::unexpected(fetchManager.error()));
        return;
    }
    m_localDataFetchManager = std::move(*fetchManager);
    m_category = defaultCategory(m_localDataFetchManager->categories().value(),
                                 *m_localDataManager->viewContext(), *m_customizationManager);
    if (!m_category)
        m_category = insertNewCategory(*m_localDataManager->viewContext());

    SharedInputSources sources{
        .isPaidTierActive = [settings =
                                 m_customizationManager] { return isPaidTierActive(*settings); },
        .localDataManager = m_localDataManager,
        .imageConverter = &converter,
    };
    readSharedInput(
        m_extensionContext, std::move(sources),
        [this, ready = std::move(ready)](SharedInput input) {
            m_input = std::move(input);
            m_toolbar = std::make_unique<ShareToolbarModel>(
                m_localDataFetchManager, m_shareManager,
                ShareToolbarModel::Input{
                    .url = m_input.url,
                    .attachments = std::move(m_input.attachments),
                    .category = m_category,
                    .isAddingAttachmentsWithoutPremium = m_input.isAddingAttachmentsWithoutPremium,
                },
                m_customizationManager, m_localDataManager, m_pendingSaves, m_services);
            m_picker = std::make_unique<ShareCategoryPickerModel>(
                m_customizationManager->isExcludingCompletedTasks(), m_localDataFetchManager,
                m_category, [this](const std::shared_ptr<store::TK_Category>& category) {
                    m_toolbar->setCategory(category);
                });
            ready({});
        });
}

} // namespace tasket::share
