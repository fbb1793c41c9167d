#include "platform/module_loader.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <vector>

namespace tasket::platform {

namespace {

std::vector<std::filesystem::path> candidates(const ModuleLocation& location) {
    std::vector<std::filesystem::path> found;
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error)
        found.push_back(self.parent_path().parent_path() / location.inPrefix);
    found.emplace_back(location.built);
    return found;
}

} // namespace

Result<const void*> loadModuleTable(const ModuleLocation& location, int version) {
    std::string problem = fmt::format("{} is not installed", location.what);
    for (const auto& candidate : candidates(location)) {
        std::error_code error;
        if (!std::filesystem::exists(candidate, error))
            continue;
        void* handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            problem = fmt::format("cannot load {}: {}", location.what, ::dlerror());
            continue;
        }
        using Entry = const int* (*)();
        const auto entry = reinterpret_cast<Entry>(::dlsym(handle, location.entry));
        const int* table = entry ? entry() : nullptr;
        if (table && *table == version)
            return static_cast<const void*>(table);
        problem = fmt::format("{} is not {} of this build", candidate.string(), location.what);
    }
    return fail(Errc::unavailable, problem);
}

} // namespace tasket::platform
