#include "platform/atomic_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace tasket::platform {

Result<void> replaceFile(const std::filesystem::path& file, std::string_view contents, mode_t mode,
                         Durability durability) {
    const bool flush = durability == Durability::flushed;
    const auto folder =
        file.parent_path().empty() ? std::filesystem::path(".") : file.parent_path();
    std::string temporary = (folder / ("." + file.filename().string() + ".tmp-XXXXXX")).string();
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return fail(Errc::ioError, fmt::format("cannot write a temporary file beside {}: {}",
                                               file.string(), std::strerror(errno)));
    std::size_t written = 0;
    while (written < contents.size()) {
        const auto n = ::write(fd, contents.data() + written, contents.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        written += static_cast<std::size_t>(n);
    }
    const bool complete =
        written == contents.size() && ::fchmod(fd, mode) == 0 && (!flush || ::fsync(fd) == 0);
    const int failure = errno;
    ::close(fd);
    if (!complete || std::rename(temporary.c_str(), file.c_str()) != 0) {
        const int reason = complete ? errno : failure;
        ::unlink(temporary.c_str());
        return fail(Errc::ioError,
                    fmt::format("cannot write {}: {}", file.string(), std::strerror(reason)));
    }
    if (const int dir = flush ? ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
        dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return {};
}

} // namespace tasket::platform
