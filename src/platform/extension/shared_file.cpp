#include "platform/extension/shared_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

namespace tasket::platform {
namespace {

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }

  private:
    int m_fd;
};

std::unexpected<Error> refuse(Errc code, std::string_view displayName, std::string_view why) {
    return fail(code, fmt::format("cannot share \"{}\": {}", displayName, why));
}

std::unexpected<Error> refuseErrno(int error, std::string_view displayName) {
    switch (error) {
    case ENOENT:
    case ENOTDIR: return refuse(Errc::notFound, displayName, "no such file or directory");
    case EACCES:
    case EPERM:
        return refuse(Errc::permissionDenied, displayName, "permission to read it is denied");
    default: return refuse(Errc::ioError, displayName, std::strerror(error));
    }
}

std::string sizeText(std::uintmax_t bytes) {
    constexpr std::uintmax_t kMiB = 1024 * 1024;
    if (bytes % kMiB == 0)
        return fmt::format("{} MiB", bytes / kMiB);
    if (bytes < kMiB)
        return fmt::format("{} bytes", bytes);
    return fmt::format("{:.1f} MiB", static_cast<double>(bytes) / static_cast<double>(kMiB));
}

// `size` is empty when the excess showed only while reading.
std::unexpected<Error> refuseTooLarge(std::string_view displayName,
                                      std::optional<std::uintmax_t> size, std::uintmax_t maxSize) {
    std::string why =
        fmt::format("it is larger than the {} an attachment may hold", sizeText(maxSize));
    if (size)
        why += fmt::format(" (it holds {})", sizeText(*size));
    return refuse(Errc::invalidArgument, displayName, why);
}

Result<void> checkKind(mode_t mode, std::string_view displayName) {
    if (S_ISREG(mode))
        return {};
    if (S_ISDIR(mode))
        return refuse(Errc::invalidArgument, displayName, "it is a directory, not a file");
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return refuse(Errc::invalidArgument, displayName, "it is a device, not a file");
    if (S_ISFIFO(mode))
        return refuse(Errc::invalidArgument, displayName, "it is a FIFO, not a file");
    if (S_ISSOCK(mode))
        return refuse(Errc::invalidArgument, displayName, "it is a socket, not a file");
    return refuse(Errc::invalidArgument, displayName, "it is not a regular file");
}

struct OpenedFile {
    std::unique_ptr<FileDescriptor> fd;
    std::uintmax_t size;
};

Result<OpenedFile> openSharedFile(const std::filesystem::path& path, std::string_view displayName,
                                  std::uintmax_t maxSize) {
    if (path.native().find('\0') != std::string::npos)
        return refuse(Errc::invalidArgument, displayName, "a file name cannot hold a NUL byte");
    // The kind is checked before opening: opening a FIFO or a device can
    // block or act on the hardware.
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return refuseErrno(errno, displayName);
    if (auto kind = checkKind(info.st_mode, displayName); !kind)
        return std::unexpected(kind.error());

    auto fd = std::make_unique<FileDescriptor>(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (fd->get() < 0)
        return refuseErrno(errno, displayName);
    // Checked again on what was opened, in case the path changed meanwhile.
    if (::fstat(fd->get(), &info) != 0)
        return refuseErrno(errno, displayName);
    if (auto kind = checkKind(info.st_mode, displayName); !kind)
        return std::unexpected(kind.error());
    const auto size = static_cast<std::uintmax_t>(info.st_size);
    if (size > maxSize)
        return refuseTooLarge(displayName, size, maxSize);
    return OpenedFile{std::move(fd), size};
}

} // namespace

Result<std::uintmax_t> checkSharedFile(const std::filesystem::path& path,
                                       std::string_view displayName, std::uintmax_t maxSize) {
    auto opened = openSharedFile(path, displayName, maxSize);
    if (!opened)
        return std::unexpected(opened.error());
    return opened->size;
}

Result<Bytes> readSharedFile(const std::filesystem::path& path, std::string_view displayName,
                             std::uintmax_t maxSize) {
    auto opened = openSharedFile(path, displayName, maxSize);
    if (!opened)
        return std::unexpected(opened.error());
    Bytes bytes;
    bytes.reserve(static_cast<std::size_t>(opened->size));
    std::uint8_t buffer[64 * 1024];
    for (;;) {
        const ssize_t count = ::read(opened->fd->get(), buffer, sizeof buffer);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return refuseErrno(errno, displayName);
        }
        if (count == 0)
            return bytes;
        if (bytes.size() + static_cast<std::size_t>(count) > maxSize)
            return refuseTooLarge(displayName, std::nullopt, maxSize);
        bytes.insert(bytes.end(), buffer, buffer + count);
    }
}

Result<Bytes> readSharedStream(std::istream& in, std::string_view displayName,
                               std::uintmax_t maxSize) {
    Bytes bytes;
    char buffer[64 * 1024];
    while (in) {
        in.read(buffer, sizeof buffer);
        const auto count = static_cast<std::size_t>(in.gcount());
        if (bytes.size() + count > maxSize)
            return refuseTooLarge(displayName, std::nullopt, maxSize);
        bytes.insert(bytes.end(), buffer, buffer + count);
    }
    if (in.bad())
        return refuse(Errc::ioError, displayName, "reading it failed");
    return bytes;
}

} // namespace tasket::platform
