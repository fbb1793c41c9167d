// The Linux adapter of a preferences suite: one JSON document per suite,
// "<directory>/<name>.json" (the directory is $XDG_CONFIG_HOME for the
// suites of the application), shared by every process of the user.
//
// Writes take an exclusive lock on "<name>.json.lock", read the document
// afresh, apply the change and replace the file atomically (temporary file,
// fsync, rename, fsync of the directory); files are created 0600. Reads take
// no lock: each one costs a stat() of the file, and the parsed document is
// reused while the file's identity (device, inode, modification time, size)
// is unchanged, so a reader sees another process's write at its next read.
// A file that is not a suite document reads as empty, with a warning on
// standard error; the next write moves it aside to "<name>.json.corrupt-
// <UTC timestamp>" before writing, so it is never silently destroyed.
#pragma once

#include "platform/preferences/preferences_suite.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>

namespace tasket::platform {

class FilePreferencesSuite final : public PreferencesSuite {
  public:
    /// The suite `name` kept in `directory`, which is created (0700) when
    /// missing. The suite is unavailable when the directory cannot be made or
    /// written, or `name` cannot be a file name.
    FilePreferencesSuite(std::filesystem::path directory, std::string name);
    /// The suite `name` in $XDG_CONFIG_HOME.
    [[nodiscard]] static std::shared_ptr<FilePreferencesSuite> inConfigHome(std::string name);

    [[nodiscard]] const std::string& name() const override { return m_name; }
    [[nodiscard]] bool isAvailable() const override { return m_available; }
    [[nodiscard]] std::optional<PreferenceValue> value(std::string_view key) const override;
    [[nodiscard]] PreferenceDictionary dictionaryRepresentation() const override;
    [[nodiscard]] Result<>
    update(const std::function<void(PreferenceDictionary&)>& change) override;
    [[nodiscard]] Result<std::unique_ptr<PreferencesObservation>>
    observeChanges(std::function<void()> changed) override;

    /// The document's path.
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

  private:
    struct FileIdentity {
        dev_t device = 0;
        ino_t inode = 0;
        std::int64_t modifiedNanoseconds = 0;
        off_t size = 0;
        friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
    };
    struct Loaded; // one read of the file: identity, values or the parse error

    /// Brings m_values up to date with the file. Caller holds m_mutex.
    void refreshLocked() const;
    /// Reads and parses the file as it is now (no cache).
    [[nodiscard]] Loaded load() const;
    [[nodiscard]] Result<> moveAside(const std::string& reason) const;

    const std::filesystem::path m_directory;
    const std::string m_name;
    const std::filesystem::path m_path;
    const std::filesystem::path m_lockPath;
    bool m_available = false;

    mutable std::mutex m_mutex; // guards the cache below
    mutable bool m_cacheValid = false;
    mutable FileIdentity m_cachedIdentity;
    mutable PreferenceDictionary m_values;
};

} // namespace tasket::platform
