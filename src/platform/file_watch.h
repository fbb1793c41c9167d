// Watches one file in a folder for being written or replaced, by this
// process or any other, and calls back on a thread of its own (inotify on
// the folder, since an atomic replace gives the file a new inode). A quiet
// period folds a burst of writes into one call.
#pragma once

#include "platform/error.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tasket::platform {

class FileWatch {
  public:
    /// What happens to a watched name that counts as a change.
    enum Event : unsigned {
        closedAfterWriting = 1U << 0, // a writer closed it
        movedIn = 1U << 1,            // something was renamed onto it
        modified = 1U << 2,           // each write, before the writer closes
        created = 1U << 3,
        removed = 1U << 4,
    };

    struct Options {
        /// The watched file; its folder is what inotify watches.
        std::filesystem::path file;
        /// Endings appended to the file's name that also count ("" is the file
        /// itself), e.g. a database's "-wal" journal.
        std::vector<std::string> suffixes{""};
        /// Events (a mask of `Event`) that count as a change.
        unsigned events = closedAfterWriting | movedIn;
        /// When non-zero, the call waits until no change came for this long.
        std::chrono::milliseconds quietPeriod{0};
    };

    /// Starts watching; `changed` runs on the watch's thread after each change
    /// (or burst of changes). Fails when the folder cannot be watched.
    [[nodiscard]] static Result<std::unique_ptr<FileWatch>> start(Options options,
                                                                  std::function<void()> changed);
    /// Stops the thread; no call runs after this returns.
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

  private:
    FileWatch() = default;
    void loop();
    [[nodiscard]] bool readChanges();

    std::vector<std::string> m_names;
    std::chrono::milliseconds m_quietPeriod{0};
    std::function<void()> m_changed;
    int m_inotify = -1;
    int m_stopEvent = -1;
    std::thread m_thread;
};

} // namespace tasket::platform
