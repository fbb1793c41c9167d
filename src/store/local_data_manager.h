// The owner of the one on-disk store: where it lives (TK_Data.sqlite in the
// application-group container), the persistent container opened on first
// use with history tracking and remote-change notifications, the view
// context every fetch and edit of the user interface goes through, and the
// start of persistent-history processing when another process changed the
// store. One per process, shared by the managers that need it.
#pragma once

#include "objectstore/persistent_container.h"
#include "platform/error.h"
#include "platform/notification_center.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>

namespace tasket::store {

inline constexpr std::string_view kStoreFileName = "TK_Data.sqlite";
inline constexpr std::string_view kViewContextName = "Lumenforge.QRX.Tasket.View.Context";
/// A store that will not load stops the process with this, the error's
/// details and a full stop.
inline constexpr std::string_view kStoreLoadFailurePrefix =
    "There was an error loading the persistent store: ";

/// What the user can do after the store failed with `code`: restore or
/// move a damaged store, use a newer version, fix the file's owner and
/// modes, or free the disk. Empty for other failures.
std::string_view storeFailureAdvice(platform::Errc code);

class LocalDataManager : public std::enable_shared_from_this<LocalDataManager> {
  public:
    /// Runs persistent-history processing for the manager after a remote
    /// change; called off the thread that posted the change.
    using HistoryProcessing = std::function<void(const std::shared_ptr<LocalDataManager>&)>;

    /// Locates the store in this process's application-group container
    /// (the process stops when there is none) and starts observing remote
    /// changes. Does not open the store.
    static std::shared_ptr<LocalDataManager> make();
    /// The same for the store in `groupContainer`, an existing folder: for
    /// tests and tools that work on another copy of the data.
    static std::shared_ptr<LocalDataManager> make(const std::filesystem::path& groupContainer);

    /// Stops observing remote changes.
    ~LocalDataManager();
    LocalDataManager(const LocalDataManager&) = delete;
    LocalDataManager& operator=(const LocalDataManager&) = delete;

    // The store
    const std::filesystem::path& storeURL() const { return m_storeURL; }
    /// The persistent container, loaded and configured on the first call and
    /// the same on every later one. A store that fails to load stops the
    /// process (kStoreLoadFailurePrefix); there is no retry and no fallback.
    const std::shared_ptr<objectstore::PersistentContainer>& container();
    /// The container's view context (main queue): no automatic merges,
    /// named kViewContextName, property-level object-trump merges, no undo
    /// manager, inaccessible faults deleted.
    const std::shared_ptr<objectstore::ObjectContext>& viewContext() {
        return container()->viewContext();
    }
    /// A new private-queue context on the store.
    std::shared_ptr<objectstore::ObjectContext> newBackgroundContext() {
        return container()->newBackgroundContext();
    }

    // Remote changes
    bool isObservingRemoteChanges() const { return m_notificationToken.isActive(); }
    /// Whether the store, once opened, watches its file for other processes'
    /// saves (on by default). A short-lived process that shows nothing live
    /// turns it off before the first container() call; later calls change
    /// nothing.
    void setWatchesOtherProcesses(bool watches) { m_watchesOtherProcesses = watches; }
    /// Sets what runs, once per remote-change notification received while
    /// this manager exists, on a background queue shared by all managers
    /// (runs happen one after another). Until set, a run does nothing.
    void setHistoryProcessing(HistoryProcessing processing);

  private:
    explicit LocalDataManager(std::filesystem::path storeURL);
    void observeRemoteChanges();
    void processHistory();
    std::shared_ptr<objectstore::PersistentContainer> openContainer() const;

    bool m_watchesOtherProcesses = true;

    platform::ObserverToken m_notificationToken;
    std::shared_ptr<objectstore::PersistentContainer> m_container;
    std::filesystem::path m_storeURL;

    std::mutex m_containerMutex;
    std::mutex m_processingMutex;
    HistoryProcessing m_historyProcessing;
};

} // namespace tasket::store
