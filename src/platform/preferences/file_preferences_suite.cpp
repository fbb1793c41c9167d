#include "platform/preferences/file_preferences_suite.h"

#include "platform/clock.h"
#include "platform/fatal.h"
#include "platform/file_watch.h"
#include "platform/paths.h"
#include "platform/preferences/detail/preferences_document.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace tasket::platform {
namespace {

// Keeps the file's watch alive for as long as the observation.
class FileObservation final : public PreferencesObservation {
  public:
    explicit FileObservation(std::unique_ptr<FileWatch> watch) : m_watch(std::move(watch)) {}

  private:
    std::unique_ptr<FileWatch> m_watch;
};

class UniqueFd {
  public:
    explicit UniqueFd(int fd = -1) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&&) = delete;
    ~UniqueFd() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    /// Closes now and reports the result (a write error may surface here).
    int close() { return ::close(std::exchange(m_fd, -1)); }

  private:
    int m_fd;
};

std::int64_t nanoseconds(const timespec& ts) {
    return std::int64_t{ts.tv_sec} * 1'000'000'000 + ts.tv_nsec;
}

timespec toTimespec(std::int64_t ns) {
    return {static_cast<time_t>(ns / 1'000'000'000), static_cast<long>(ns % 1'000'000'000)};
}

Errc errcFor(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS: return Errc::permissionDenied;
    default: return Errc::ioError;
    }
}

std::unexpected<Error> failErrno(std::string_view what, const std::filesystem::path& path) {
    const int error = errno;
    return fail(errcFor(error),
                fmt::format("{} {}: {}", what, path.string(), std::strerror(error)));
}

bool isUsableFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

// Creates `directory` (0700 for what is created) and checks it can be used.
bool prepareDirectory(const std::filesystem::path& directory) {
    std::error_code ec;
    if (!std::filesystem::is_directory(directory, ec)) {
        if (!std::filesystem::create_directories(directory, ec) || ec)
            return false;
        std::filesystem::permissions(directory, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::replace, ec);
    }
    return ::access(directory.c_str(), R_OK | W_OK | X_OK) == 0;
}

Result<std::string> readAll(int fd, const std::filesystem::path& path, std::size_t sizeHint) {
    std::string text;
    text.resize(sizeHint + 1);
    std::size_t used = 0;
    for (;;) {
        if (used == text.size())
            text.resize(text.size() * 2 + 4096);
        const ssize_t n = ::read(fd, text.data() + used, text.size() - used);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return failErrno("could not read", path);
        }
        if (n == 0)
            break;
        used += static_cast<std::size_t>(n);
    }
    text.resize(used);
    return text;
}

Result<> writeAll(int fd, std::string_view text, const std::filesystem::path& path) {
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return failErrno("could not write", path);
        }
        text.remove_prefix(static_cast<std::size_t>(n));
    }
    return {};
}

Result<> syncDirectory(const std::filesystem::path& directory) {
    UniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || ::fsync(fd.get()) != 0)
        return failErrno("could not flush the directory", directory);
    return {};
}

// "20250102T030405Z" for the current instant of the shared clock.
std::string utcTimestamp() {
    const auto seconds = static_cast<time_t>(Clock::shared().now().unixSeconds());
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    return std::string(text, length);
}

// Renames without ever replacing an existing file.
int renameNoReplace(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    // A file system without RENAME_NOREPLACE: link() refuses to replace too.
    if (::link(from.c_str(), to.c_str()) != 0)
        return -1;
    return ::unlink(from.c_str());
}

} // namespace

// A settings document is a few kilobytes; one far larger is not read.
constexpr std::uint64_t kMaxDocumentBytes = 16u << 20;

struct FilePreferencesSuite::Loaded {
    enum class State { absent, parsed, unparsable, unreadable } state = State::absent;
    FileIdentity identity;
    PreferenceDictionary values;
    std::string problem; // why the file is unparsable or unreadable
};

FilePreferencesSuite::FilePreferencesSuite(std::filesystem::path directory, std::string name)
    : m_directory(std::move(directory)), m_name(std::move(name)),
      m_path(m_directory / (m_name + ".json")), m_lockPath(m_directory / (m_name + ".json.lock")) {
    m_available = isUsableFileName(m_name) && prepareDirectory(m_directory);
}

std::shared_ptr<FilePreferencesSuite> FilePreferencesSuite::inConfigHome(std::string name) {
    return std::make_shared<FilePreferencesSuite>(xdgConfigHome(), std::move(name));
}

FilePreferencesSuite::Loaded FilePreferencesSuite::load() const {
    Loaded loaded;
    // O_NONBLOCK: a FIFO planted under the document's name must not hang us.
    UniqueFd fd(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat st {};
    if (!fd) {
        if (errno != ENOENT) {
            loaded.state = Loaded::State::unreadable;
            loaded.problem = std::strerror(errno);
        }
        return loaded;
    }
    if (::fstat(fd.get(), &st) != 0) {
        loaded.state = Loaded::State::unreadable;
        loaded.problem = std::strerror(errno);
        return loaded;
    }
    loaded.identity = {st.st_dev, st.st_ino, nanoseconds(st.st_mtim), st.st_size};
    if (!S_ISREG(st.st_mode)) {
        loaded.state = Loaded::State::unreadable;
        loaded.problem = "it is not a regular file";
        return loaded;
    }
    if (static_cast<std::uint64_t>(st.st_size) > kMaxDocumentBytes) {
        loaded.state = Loaded::State::unparsable;
        loaded.problem = fmt::format("it is {} bytes, more than a document may hold ({})",
                                     st.st_size, kMaxDocumentBytes);
        return loaded;
    }
    auto text = readAll(fd.get(), m_path, static_cast<std::size_t>(st.st_size));
    if (!text) {
        loaded.state = Loaded::State::unreadable;
        loaded.problem = text.error().message;
        return loaded;
    }
    auto values = detail::parsePreferencesDocument(*text);
    if (!values) {
        loaded.state = Loaded::State::unparsable;
        loaded.problem = values.error().message;
        return loaded;
    }
    loaded.state = Loaded::State::parsed;
    loaded.values = std::move(*values);
    return loaded;
}

void FilePreferencesSuite::refreshLocked() const {
    struct stat st {};
    if (::stat(m_path.c_str(), &st) != 0) {
        // No file (or none we may see): nothing is stored.
        m_cacheValid = false;
        m_values.clear();
        return;
    }
    const FileIdentity identity{st.st_dev, st.st_ino, nanoseconds(st.st_mtim), st.st_size};
    if (m_cacheValid && identity == m_cachedIdentity)
        return;

    Loaded loaded = load();
    m_values = std::move(loaded.values);
    // Whatever was found is remembered by its identity, so each problem is
    // reported once, not at every read.
    m_cacheValid = loaded.state != Loaded::State::absent;
    m_cachedIdentity = loaded.identity;
    if (loaded.state == Loaded::State::unparsable)
        warn(fmt::format("preferences file {} is not a valid preferences document ({}); using "
                         "defaults, and the next write moves it aside",
                         m_path.string(), loaded.problem));
    else if (loaded.state == Loaded::State::unreadable)
        warn(fmt::format("preferences file {} cannot be read ({}); using defaults, and settings "
                         "cannot be saved until it is removed or made readable",
                         m_path.string(), loaded.problem));
}

std::optional<PreferenceValue> FilePreferencesSuite::value(std::string_view key) const {
    if (!m_available)
        return std::nullopt;
    std::lock_guard lock(m_mutex);
    refreshLocked();
    if (auto it = m_values.find(key); it != m_values.end())
        return it->second;
    return std::nullopt;
}

PreferenceDictionary FilePreferencesSuite::dictionaryRepresentation() const {
    if (!m_available)
        return {};
    std::lock_guard lock(m_mutex);
    refreshLocked();
    return m_values;
}

Result<> FilePreferencesSuite::moveAside(const std::string& reason) const {
    const std::string base = m_path.string() + ".corrupt-" + utcTimestamp();
    for (int attempt = 1;; ++attempt) {
        const std::filesystem::path target =
            attempt == 1 ? base : fmt::format("{}-{}", base, attempt);
        if (renameNoReplace(m_path, target) == 0) {
            warn(fmt::format("moved the unreadable preferences file {} aside to {} ({})",
                             m_path.string(), target.string(), reason));
            return {};
        }
        if (errno != EEXIST || attempt >= 1000)
            return failErrno("could not move aside the unreadable preferences file", m_path);
    }
}

Result<> FilePreferencesSuite::update(const std::function<void(PreferenceDictionary&)>& change) {
    if (!m_available)
        return fail(Errc::unavailable,
                    fmt::format("preferences suite \"{}\" is unavailable", m_name));

    UniqueFd lockFd(::open(m_lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lockFd)
        return failErrno("could not open the lock file", m_lockPath);
    while (::flock(lockFd.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            return failErrno("could not lock", m_lockPath);

    // Under the lock the file is read afresh: a cached copy could miss a
    // write another process made an instant ago, and that write would be lost.
    Loaded current = load();
    if (current.state == Loaded::State::unreadable)
        return fail(Errc::ioError, fmt::format("could not read preferences file {}: {}",
                                               m_path.string(), current.problem));
    if (current.state == Loaded::State::unparsable) {
        if (auto moved = moveAside(current.problem); !moved)
            return moved;
        current = Loaded{};
    }

    PreferenceDictionary next = std::move(current.values);
    change(next);
    if (auto valid = validatePreferenceDictionary(next); !valid)
        return valid;
    const std::string text = detail::writePreferencesDocument(next);

    std::string tempName = m_path.string() + ".tmp-XXXXXX";
    UniqueFd tempFd(::mkostemp(tempName.data(), O_CLOEXEC));
    if (!tempFd)
        return failErrno("could not create a temporary file beside", m_path);
    const std::filesystem::path tempPath = tempName;
    auto discard = [&](Result<> failure) {
        ::unlink(tempPath.c_str());
        return failure;
    };

    // The modification time moves strictly forward from the replaced file's,
    // so (inode, mtime, size) never repeats even when an inode is reused within
    // one clock tick: readers comparing identities cannot miss a write.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::int64_t modified = nanoseconds(now);
    if (current.state == Loaded::State::parsed && modified <= current.identity.modifiedNanoseconds)
        modified = current.identity.modifiedNanoseconds + 1;
    const timespec times[2] = {{0, UTIME_OMIT}, toTimespec(modified)};

    if (::fchmod(tempFd.get(), 0600) != 0)
        return discard(failErrno("could not set permissions of", tempPath));
    if (auto written = writeAll(tempFd.get(), text, tempPath); !written)
        return discard(written);
    if (::futimens(tempFd.get(), times) != 0)
        return discard(failErrno("could not set the modification time of", tempPath));
    if (::fsync(tempFd.get()) != 0)
        return discard(failErrno("could not flush", tempPath));
    if (tempFd.close() != 0)
        return discard(failErrno("could not close", tempPath));
    if (::rename(tempPath.c_str(), m_path.c_str()) != 0)
        return discard(failErrno("could not replace", m_path));
    if (auto synced = syncDirectory(m_directory); !synced)
        return synced;

    struct stat st {};
    std::lock_guard lock(m_mutex);
    if (::stat(m_path.c_str(), &st) == 0) {
        m_cachedIdentity = {st.st_dev, st.st_ino, nanoseconds(st.st_mtim), st.st_size};
        m_values = std::move(next);
        m_cacheValid = true;
    } else {
        m_cacheValid = false;
    }
    return {};
}

Result<std::unique_ptr<PreferencesObservation>>
FilePreferencesSuite::observeChanges(std::function<void()> changed) {
    if (!m_available)
        return fail(Errc::unavailable,
                    fmt::format("preferences suite \"{}\" is unavailable", m_name));
    FileWatch::Options options{.file = m_path,
                               .events = FileWatch::closedAfterWriting | FileWatch::movedIn |
                                         FileWatch::removed};
    auto watch = FileWatch::start(std::move(options), std::move(changed));
    if (!watch)
        return std::unexpected(watch.error());
    return std::make_unique<FileObservation>(std::move(*watch));
}

} // namespace tasket::platform
