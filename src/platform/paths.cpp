#include "platform/paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace tasket::platform {
namespace {

std::filesystem::path home() {
    if (const char* h = std::getenv("HOME"); h && *h)
        return h;
    if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir)
        return pw->pw_dir;
    return std::filesystem::temp_directory_path();
}

// The XDG rules: an unset, empty or relative value is ignored.
std::filesystem::path fromEnv(const char* name, const std::filesystem::path& fallback) {
    if (const char* v = std::getenv(name); v && *v == '/')
        return v;
    return fallback;
}

} // namespace

std::filesystem::path xdgDataHome() {
    return fromEnv("XDG_DATA_HOME", home() / ".local/share");
}
std::filesystem::path xdgConfigHome() {
    return fromEnv("XDG_CONFIG_HOME", home() / ".config");
}
std::filesystem::path xdgRuntimeDir() {
    return fromEnv("XDG_RUNTIME_DIR", std::filesystem::temp_directory_path());
}

} // namespace tasket::platform
