#include "store/local_data_manager.h"

#include "platform/fatal.h"
#include "platform/serial_queue.h"
#include "platform/text_catalogue.h"
#include "store/application_group.h"
#include "store/modification_counter.h"
#include "store/tk_data_model.h"

#include <fmt/format.h>

namespace tasket::store {

namespace {

// History runs of every manager go through one queue, so two runs never
// overlap. It lives as long as the process: a run may still be queued while
// static objects are destroyed.
platform::SerialQueue& historyQueue() {
    static auto* queue = new platform::SerialQueue("history processing");
    return *queue;
}

} // namespace

std::shared_ptr<LocalDataManager> LocalDataManager::make() {
    return make(applicationGroupContainerURL());
}

std::shared_ptr<LocalDataManager>
LocalDataManager::make(const std::filesystem::path& groupContainer) {
    std::shared_ptr<LocalDataManager> manager(
        new LocalDataManager(groupContainer / kStoreFileName));
    manager->observeRemoteChanges();
    return manager;
}

LocalDataManager::LocalDataManager(std::filesystem::path storeURL)
    : m_storeURL(std::move(storeURL)) {}

LocalDataManager::~LocalDataManager() {
    m_notificationToken.reset();
}

void LocalDataManager::observeRemoteChanges() {
    // Any store's remote changes, delivered on the posting thread. The
    // handler must not keep the manager alive, and does no store work itself.
    std::weak_ptr<LocalDataManager> weakSelf = weak_from_this();
    m_notificationToken = platform::NotificationCenter::defaultCenter().addObserver(
        objectstore::kStoreRemoteChangeNotification, nullptr,
        [weakSelf](const objectstore::RemoteChangeInfo&, const void*) {
            auto self = weakSelf.lock();
            if (!self)
                return;
            historyQueue().async([self = std::move(self)] { self->processHistory(); });
        });
}

void LocalDataManager::setHistoryProcessing(HistoryProcessing processing) {
    std::lock_guard lock(m_processingMutex);
    m_historyProcessing = std::move(processing);
}

void LocalDataManager::processHistory() {
    HistoryProcessing processing;
    {
        std::lock_guard lock(m_processingMutex);
        processing = m_historyProcessing;
    }
    if (processing)
        processing(shared_from_this());
}

const std::shared_ptr<objectstore::PersistentContainer>& LocalDataManager::container() {
    std::lock_guard lock(m_containerMutex);
    if (!m_container)
        m_container = openContainer();
    return m_container;
}

namespace {

// Second line under the store's load failure: what the user can do. The
// first line, and the store file, stay as they are.
// Advice after a store that is damaged or not a store could not be opened.
constexpr platform::Text kDamagedStoreAdvice = platform::catalogueText(
    "Nothing was changed. Restore the file from a backup, or move it (and any file beside it "
    "whose name ends in -wal) aside to start with an empty store.");
// Advice after a store written by a newer version could not be opened.
constexpr platform::Text kNewerStoreAdvice =
    platform::catalogueText("Nothing was changed. Open it with the newer version of Tasket.");
// Advice after the store or its folder could not be read or written.
constexpr platform::Text kStoreAccessAdvice = platform::catalogueText(
    "Make sure the file and its folder belong to you and can be read and written.");
// Advice after the store failed to open for any other reason (a full disk, say).
constexpr platform::Text kStoreTroubleAdvice = platform::catalogueText(
    "Make sure the disk is not full and the folder can be written, then try again.");

std::string_view adviceFor(platform::Errc code) {
    using platform::Errc;
    switch (code) {
    case Errc::storeCorrupt: return kDamagedStoreAdvice.translated();
    case Errc::schemaTooNew: return kNewerStoreAdvice.translated();
    case Errc::permissionDenied: return kStoreAccessAdvice.translated();
    default: return kStoreTroubleAdvice.translated();
    }
}

} // namespace

std::shared_ptr<objectstore::PersistentContainer> LocalDataManager::openContainer() const {
    auto container =
        std::make_shared<objectstore::PersistentContainer>(std::string(kModelName), tkDataModel());
    objectstore::StoreDescription description;
    description.url = m_storeURL;
    description.options.remoteChangeNotifications = m_watchesOtherProcesses;
    description.options.historyTracking = true;
    container->persistentStoreDescriptions() = {description};
    container->setWillSave(raiseModificationCounters);

    container->loadPersistentStores(
        [](const objectstore::StoreDescription&, const std::optional<platform::Error>& error) {
            if (error)
                platform::fatal(fmt::format("{}{}.\n{}", kStoreLoadFailurePrefix, error->message,
                                            adviceFor(error->code)));
        });

    auto& view = *container->viewContext();
    // Other processes' changes arrive through history processing only.
    view.setAutomaticallyMergesChangesFromParent(false);
    view.setName(std::string(kViewContextName));
    view.setMergePolicy(objectstore::MergePolicy::mergeByPropertyObjectTrump);
    // No undo manager: the engine's contexts keep no undo history.
    view.setShouldDeleteInaccessibleFaults(true);
    return container;
}

} // namespace tasket::store
