#include "store/application_group.h"

#include "platform/fatal.h"
#include "platform/paths.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace tasket::store {

using platform::Errc;
using platform::fail;

namespace {

platform::Error unusable(const std::filesystem::path& folder, std::string_view reason) {
    return {Errc::permissionDenied,
            fmt::format("The application group container {} cannot be used: {}.", folder.string(),
                        reason)};
}

} // namespace

platform::Result<std::filesystem::path>
prepareApplicationGroupContainer(const std::filesystem::path& dataHome) {
    const auto folder = dataHome / kApplicationGroup;
    // Missing folders on the way are made 0700, as the XDG base directories
    // should be, whatever the umask lets through.
    std::error_code ec;
    std::vector<std::filesystem::path> missing;
    for (auto p = dataHome; !p.empty() && !std::filesystem::exists(p, ec); p = p.parent_path()) {
        missing.push_back(p);
        if (p == p.parent_path())
            break;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it)
        if (::mkdir(it->c_str(), 0700) != 0 && errno != EEXIST)
            return std::unexpected(unusable(folder, std::strerror(errno)));
    if (!std::filesystem::is_directory(dataHome, ec))
        return std::unexpected(unusable(folder, std::strerror(ENOTDIR)));
    if (::mkdir(folder.c_str(), 0700) == 0) {
        // The umask may have taken bits away; the folder is the user's alone.
        if (::chmod(folder.c_str(), 0700) != 0)
            return std::unexpected(unusable(folder, std::strerror(errno)));
    } else if (errno != EEXIST) {
        return std::unexpected(unusable(folder, std::strerror(errno)));
    }
    // Someone else's folder, or a link to one, is never written into.
    struct stat info {};
    if (::lstat(folder.c_str(), &info) != 0)
        return std::unexpected(unusable(folder, std::strerror(errno)));
    if (S_ISLNK(info.st_mode))
        return std::unexpected(unusable(folder, "it is a symbolic link"));
    if (!S_ISDIR(info.st_mode))
        return std::unexpected(unusable(folder, "it is not a directory"));
    if (info.st_uid != ::geteuid())
        return std::unexpected(unusable(folder, "it belongs to another user"));
    if (::access(folder.c_str(), R_OK | W_OK | X_OK) != 0)
        return std::unexpected(unusable(folder, std::strerror(errno)));
    return folder;
}

const std::filesystem::path& applicationGroupContainerURL() {
    static const std::filesystem::path url = [] {
        auto folder = prepareApplicationGroupContainer(platform::xdgDataHome());
        if (!folder)
            platform::fatal(folder.error().message);
        return *folder;
    }();
    return url;
}

} // namespace tasket::store
