#include "platform/calendars/calendar_store_module.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <mutex>
#include <system_error>

namespace tasket::platform {
namespace {

// Where the module is: under the installation's prefix, taken as the
// folder above the running program's own (bin or libexec), then where
// this build put it.
std::vector<std::filesystem::path> moduleCandidates() {
    std::vector<std::filesystem::path> candidates;
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error)
        candidates.push_back(self.parent_path().parent_path() / TASKET_CALENDAR_MODULE_IN_PREFIX);
    candidates.emplace_back(TASKET_CALENDAR_MODULE_BUILT);
    return candidates;
}

struct Loaded {
    const CalendarStoreFactories* factories = nullptr;
    std::string problem;
};

Loaded load() {
    std::string problem = "the calendar store module is not installed";
    for (const auto& candidate : moduleCandidates()) {
        std::error_code error;
        if (!std::filesystem::exists(candidate, error))
            continue;
        // Loaded once and kept: the stores it makes run its code.
        void* handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            problem = fmt::format("cannot load the calendar store module: {}", ::dlerror());
            continue;
        }
        using Entry = const CalendarStoreFactories* (*)();
        const auto entry = reinterpret_cast<Entry>(::dlsym(handle, kCalendarStoreModuleEntry));
        const CalendarStoreFactories* factories = entry ? entry() : nullptr;
        if (factories && factories->version == CalendarStoreFactories::kVersion)
            return {factories, {}};
        problem =
            fmt::format("{} is not a calendar store module of this build", candidate.string());
    }
    return {nullptr, problem};
}

Result<const CalendarStoreFactories*> factories() {
    static const Loaded loaded = load();
    if (!loaded.factories)
        return fail(Errc::unavailable, loaded.problem);
    return loaded.factories;
}

} // namespace

bool isCaldavUrl(std::string_view source) {
    return source.starts_with("http://") || source.starts_with("https://");
}

Result<std::shared_ptr<CalendarStore>>
openVdirCalendarStore(std::vector<std::filesystem::path> roots) {
    auto loaded = factories();
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->vdir(std::move(roots));
}

Result<std::shared_ptr<CalendarStore>> openCaldavCalendarStore(std::vector<std::string> urls) {
    auto loaded = factories();
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->caldav(std::move(urls));
}

} // namespace tasket::platform
