// Watches the store's folder with inotify and, once a burst of writes to the
// store file or its journal has gone quiet, asks the store whether another
// connection committed (PRAGMA data_version); the store then posts one
// remote-change notification for the burst.
#pragma once

#include "platform/error.h"

#include <atomic>
#include <memory>
#include <thread>

namespace tasket::objectstore {
class PersistentStore;
}

namespace tasket::objectstore::detail {

class RemoteChangeMonitor {
  public:
    [[nodiscard]] static platform::Result<std::unique_ptr<RemoteChangeMonitor>>
    start(PersistentStore& store);
    ~RemoteChangeMonitor();
    RemoteChangeMonitor(const RemoteChangeMonitor&) = delete;
    RemoteChangeMonitor& operator=(const RemoteChangeMonitor&) = delete;

  private:
    RemoteChangeMonitor() = default;
    void loop();

    PersistentStore* m_store = nullptr;
    int m_inotify = -1;
    int m_stopEvent = -1;
    std::string m_fileName;
    std::thread m_thread;
};

} // namespace tasket::objectstore::detail
