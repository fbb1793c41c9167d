// Watches one file for being written or replaced, by this process or any
// other, and calls back on a thread of its own (inotify on the file's
// folder, since an atomic replace gives the file a new inode).
#pragma once

#include "platform/error.h"
#include "platform/preferences/preferences_suite.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

namespace tasket::platform::detail {

class FileWatch final : public PreferencesObservation {
  public:
    /// Starts watching `file`; `changed` runs on the watch's thread after each
    /// write, replacement or removal. Fails when the folder cannot be watched.
    [[nodiscard]] static Result<std::unique_ptr<FileWatch>> start(std::filesystem::path file,
                                                                  std::function<void()> changed);
    /// Stops the thread; no call runs after this returns.
    ~FileWatch() override;
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

  private:
    FileWatch() = default;
    void loop();

    std::string m_fileName;
    std::function<void()> m_changed;
    int m_inotify = -1;
    int m_stopEvent = -1;
    std::thread m_thread;
};

} // namespace tasket::platform::detail
