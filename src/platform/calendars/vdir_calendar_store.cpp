#include "platform/calendars/vdir_calendar_store.h"

#include "platform/atomic_file.h"
#include "platform/calendars/detail/ical_codec.h"
#include "platform/uuid.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace tasket::platform {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDisplayName = "displayname";
constexpr const char* kColor = "color";
constexpr const char* kComponents = "supported-components";

std::optional<std::string> readText(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string firstLine(std::string text) {
    if (const auto end = text.find_first_of("\r\n"); end != std::string::npos)
        text.erase(end);
    return text;
}

// Writes `text` over `file` (readable by the other calendar programs).
Result<> writeAtomically(const fs::path& file, std::string_view text) {
    return replaceFile(file, text, 0644);
}

// A folder name that can name a calendar: 1 to 255 bytes, no "/", no
// control character, not starting with a dot (so never "." or "..").
bool isCalendarName(std::string_view name) {
    return !name.empty() && name.size() <= 255 && name.front() != '.' &&
           std::ranges::none_of(name, [](char ch) {
               return ch == '/' || static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f;
           });
}

bool isItemFile(const fs::directory_entry& entry) {
    const auto name = entry.path().filename().string();
    return entry.is_regular_file() && !name.starts_with('.') && name.ends_with(".ics");
}

// The name, inode, size and change times of an item file, hashed. The
// inode too: a file replaced within one tick of the clock is a new one.
std::uint64_t fileHash(std::string_view name, const struct stat& status) {
    std::uint64_t hash = 14695981039346656037ULL; // FNV-1a
    const auto mix = [&](const void* bytes, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            hash ^= static_cast<const unsigned char*>(bytes)[i];
            hash *= 1099511628211ULL;
        }
    };
    mix(name.data(), name.size());
    for (const std::int64_t field :
         {static_cast<std::int64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size),
          static_cast<std::int64_t>(status.st_mtim.tv_sec),
          static_cast<std::int64_t>(status.st_mtim.tv_nsec),
          static_cast<std::int64_t>(status.st_ctim.tv_sec),
          static_cast<std::int64_t>(status.st_ctim.tv_nsec)})
        mix(&field, sizeof field);
    return hash;
}

// The sum of one hash per file, so the order of the listing does not matter.
std::string tokenOf(const std::unordered_map<std::string, std::uint64_t>& hashes) {
    std::uint64_t sum = 0;
    for (const auto& [name, hash] : hashes)
        sum += hash;
    return fmt::format("{}:{:016x}", hashes.size(), sum);
}

// What a folder holds: its `supported-components` file, else the kind of
// its first item, else reminders.
CalendarEntityType kindOf(const fs::path& folder) {
    if (const auto components = readText(folder / kComponents))
        return firstLine(*components) == "VEVENT" ? CalendarEntityType::event
                                                  : CalendarEntityType::reminder;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (!isItemFile(entry))
            continue;
        const auto text = readText(entry.path()).value_or("");
        if (text.find("BEGIN:VTODO") != std::string::npos)
            return CalendarEntityType::reminder;
        if (text.find("BEGIN:VEVENT") != std::string::npos)
            return CalendarEntityType::event;
    }
    return CalendarEntityType::reminder;
}

} // namespace

VdirCalendarStore::VdirCalendarStore(std::vector<fs::path> roots) : m_roots(std::move(roots)) {}

Result<> VdirCalendarStore::eachItemFile(
    const fs::path& folder, const std::function<bool(CalendarItem, const fs::path&)>& visit) const {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error)
        return fail(Errc::ioError, fmt::format("cannot read the calendar {}: {}", folder.string(),
                                               error.message()));
    for (const auto& entry : entries) {
        if (!isItemFile(entry))
            continue;
        struct stat status {};
        if (::stat(entry.path().c_str(), &status) != 0)
            continue;
        const std::int64_t modified =
            status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec;
        auto& parsed = m_parsed[entry.path().native()];
        if (parsed.modified != modified || parsed.size != status.st_size || status.st_size == 0) {
            const auto text = readText(entry.path());
            auto item = text ? detail::parseCalendarItem(*text) : fail(Errc::ioError, "");
            parsed = {modified, status.st_size,
                      item ? std::optional(std::move(*item)) : std::nullopt};
        }
        if (!parsed.item)
            continue;
        m_fileOfItem.insert_or_assign(parsed.item->identifier, entry.path());
        if (!visit(*parsed.item, entry.path()))
            break;
    }
    return {};
}

std::vector<CalendarSource> VdirCalendarStore::sources() const {
    std::vector<CalendarSource> sources;
    for (const auto& root : m_roots)
        sources.push_back({root.string(), root.filename().string()});
    return sources;
}

std::vector<VdirCalendarStore::Folder> VdirCalendarStore::folders() const {
    Lock lock(m_mutex);
    std::vector<Folder> found;
    for (const auto& root : m_roots) {
        std::error_code error;
        std::vector<fs::path> paths;
        for (const auto& entry : fs::directory_iterator(root, error))
            if (entry.is_directory() && isCalendarName(entry.path().filename().string()))
                paths.push_back(entry.path());
        std::ranges::sort(paths);
        for (const auto& path : paths) {
            const auto id = path.filename().string();
            if (m_pendingCalendars.contains(id))
                continue;
            CalendarInfo info{id, firstLine(readText(path / kDisplayName).value_or(id)),
                              firstLine(readText(path / kColor).value_or("")), kindOf(path),
                              root.string()};
            found.push_back({std::move(info), path});
        }
    }
    for (const auto& [id, pending] : m_pendingCalendars)
        if (pending)
            found.push_back({*pending, fs::path(pending->sourceIdentifier) / id});
    return found;
}

std::optional<VdirCalendarStore::Folder>
VdirCalendarStore::folder(std::string_view identifier) const {
    if (!isCalendarName(identifier))
        return std::nullopt;
    for (auto& found : folders())
        if (found.info.identifier == identifier)
            return std::move(found);
    return std::nullopt;
}

std::vector<CalendarInfo> VdirCalendarStore::calendars(CalendarEntityType type) const {
    std::vector<CalendarInfo> found;
    for (auto& each : folders())
        if (each.info.entityType == type)
            found.push_back(std::move(each.info));
    return found;
}

std::optional<CalendarInfo>
VdirCalendarStore::calendarWithIdentifier(std::string_view identifier) const {
    auto found = folder(identifier);
    if (!found)
        return std::nullopt;
    return std::move(found->info);
}

Result<> VdirCalendarStore::saveCalendar(CalendarInfo& calendar, bool commit) {
    Lock lock(m_mutex);
    CalendarInfo saved = calendar;
    if (saved.sourceIdentifier.empty()) {
        const auto fallback = defaultCalendarForNewReminders();
        saved.sourceIdentifier = fallback          ? fallback->sourceIdentifier
                                 : m_roots.empty() ? std::string()
                                                   : m_roots.front().string();
    }
    if (std::ranges::find(m_roots, fs::path(saved.sourceIdentifier)) == m_roots.end())
        return fail(Errc::notFound,
                    "there is no calendar source \"" + saved.sourceIdentifier + "\"");
    if (saved.identifier.empty()) {
        saved.identifier = Uuid::generate().toString();
    } else {
        const auto existing = folder(saved.identifier);
        if (!existing)
            return fail(Errc::notFound, "there is no calendar \"" + saved.identifier + "\"");
        if (existing->info.entityType != saved.entityType ||
            existing->info.sourceIdentifier != saved.sourceIdentifier)
            return fail(Errc::invalidArgument, "a calendar keeps its kind and its source");
    }
    m_pendingCalendars.insert_or_assign(saved.identifier, saved);
    calendar = std::move(saved);
    return commitIf(commit);
}

Result<> VdirCalendarStore::removeCalendar(std::string_view identifier, bool commit) {
    Lock lock(m_mutex);
    if (!folder(identifier))
        return fail(Errc::notFound, "there is no calendar \"" + std::string(identifier) + "\"");
    std::erase_if(m_pendingItems, [identifier](const auto& entry) {
        return entry.second && entry.second->calendarIdentifier == identifier;
    });
    m_pendingCalendars.insert_or_assign(std::string(identifier), std::nullopt);
    return commitIf(commit);
}

Result<std::vector<CalendarItem>>
VdirCalendarStore::items(CalendarEntityType kind,
                         std::span<const std::string> calendarIdentifiers) const {
    Lock lock(m_mutex);
    std::vector<Folder> chosen;
    for (const auto& id : calendarIdentifiers) {
        auto found = folder(id);
        if (!found)
            return fail(Errc::notFound, "there is no calendar \"" + id + "\"");
        chosen.push_back(std::move(*found));
    }
    if (calendarIdentifiers.empty())
        for (auto& each : folders())
            if (each.info.entityType == kind)
                chosen.push_back(std::move(each));

    std::vector<CalendarItem> found;
    for (const auto& each : chosen) {
        if (!fs::exists(each.path))
            continue; // a calendar not committed yet
        auto listed = eachItemFile(each.path, [&](CalendarItem item, const fs::path&) {
            if (item.kind == kind && !m_pendingItems.contains(item.identifier)) {
                item.calendarIdentifier = each.info.identifier;
                found.push_back(std::move(item));
            }
            return true;
        });
        if (!listed)
            return std::unexpected(listed.error());
    }
    for (const auto& [id, pending] : m_pendingItems)
        if (pending && pending->kind == kind && std::ranges::any_of(chosen, [&](const Folder& f) {
                return f.info.identifier == pending->calendarIdentifier;
            }))
            found.push_back(*pending);
    return found;
}

std::optional<VdirCalendarStore::StoredItem>
VdirCalendarStore::storedItem(std::string_view identifier) const {
    if (identifier.empty())
        return std::nullopt;
    const auto all = folders();
    // The file it was last seen in, the file named after it, then every file.
    std::vector<fs::path> likely;
    if (const auto seen = m_fileOfItem.find(identifier); seen != m_fileOfItem.end())
        likely.push_back(seen->second);
    for (const auto& each : all)
        likely.push_back(each.path / detail::itemFileName(identifier));
    for (const auto& file : likely) {
        const auto each = std::ranges::find(all, file.parent_path(), &Folder::path);
        if (each == all.end())
            continue;
        if (const auto text = readText(file))
            if (auto item = detail::parseCalendarItem(*text);
                item && item->identifier == identifier) {
                item->calendarIdentifier = each->info.identifier;
                return StoredItem{std::move(*item), file};
            }
    }
    std::optional<StoredItem> found;
    for (const auto& each : all) {
        (void)eachItemFile(each.path, [&](CalendarItem item, const fs::path& file) {
            if (item.identifier != identifier)
                return true;
            item.calendarIdentifier = each.info.identifier;
            found = StoredItem{std::move(item), file};
            return false;
        });
        if (found)
            break;
    }
    return found;
}

std::optional<CalendarItem>
VdirCalendarStore::itemWithIdentifier(std::string_view identifier) const {
    Lock lock(m_mutex);
    if (const auto pending = m_pendingItems.find(identifier); pending != m_pendingItems.end())
        return pending->second;
    auto stored = storedItem(identifier);
    if (!stored)
        return std::nullopt;
    return std::move(stored->item);
}

std::optional<std::string> VdirCalendarStore::changeToken(std::string_view identifier) const {
    Lock lock(m_mutex);
    const auto found = m_pendingItems.empty() ? folder(identifier) : std::nullopt;
    DIR* dir = found ? ::opendir(found->path.c_str()) : nullptr;
    if (!dir)
        return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (!name.starts_with('.') && name.ends_with(".ics"))
            names.emplace_back(name);
    }
    // Each file is looked up from the folder (as isItemFile would tell).
    // Looking up a large folder's files is most of the time: it is shared
    // among threads, as the kernel serves lookups in parallel.
    std::vector<std::optional<std::uint64_t>> hashes(names.size());
    const auto look = [&](std::size_t first, std::size_t step) {
        for (std::size_t i = first; i < names.size(); i += step)
            if (struct stat status{}; ::fstatat(::dirfd(dir), names[i].c_str(), &status, 0) == 0 &&
                                      S_ISREG(status.st_mode))
                hashes[i] = fileHash(names[i], status);
    };
    constexpr std::size_t kFilesPerThread = 2048;
    const std::size_t threads = std::clamp<std::size_t>(
        names.size() / kFilesPerThread, 1, std::max(1U, std::thread::hardware_concurrency()));
    {
        std::vector<std::jthread> helpers;
        for (std::size_t t = 1; t < threads; ++t)
            helpers.emplace_back(look, t, threads);
        look(0, threads);
    }
    ::closedir(dir);
    auto& listed = m_listed[found->path.native()];
    listed.clear();
    for (std::size_t i = 0; i < names.size(); ++i)
        if (hashes[i])
            listed.emplace(std::move(names[i]), *hashes[i]);
    return tokenOf(listed);
}

std::optional<std::string>
VdirCalendarStore::tokenAfterOwnWrites(std::string_view identifier) const {
    Lock lock(m_mutex);
    const auto found = m_pendingItems.empty() ? folder(identifier) : std::nullopt;
    const auto listed = found ? m_listed.find(found->path.native()) : m_listed.end();
    if (listed == m_listed.end())
        return std::nullopt;
    return tokenOf(listed->second);
}

void VdirCalendarStore::noteOwnWrite(const fs::path& file, bool removed) {
    const auto listed = m_listed.find(file.parent_path().native());
    if (listed == m_listed.end())
        return;
    const auto name = file.filename().string();
    struct stat status {};
    if (removed || ::stat(file.c_str(), &status) != 0)
        listed->second.erase(name);
    else
        listed->second[name] = fileHash(name, status);
}

Result<> VdirCalendarStore::commitLocked() {
    // Calendars first (items may go into new ones), then items, then the
    // removal of calendars. Each change leaves the pending set once stored.
    for (auto it = m_pendingCalendars.begin(); it != m_pendingCalendars.end();) {
        if (!it->second) {
            ++it;
            continue;
        }
        const auto& info = *it->second;
        const fs::path path = fs::path(info.sourceIdentifier) / info.identifier;
        std::error_code error;
        fs::create_directories(path, error);
        if (error)
            return fail(Errc::ioError, fmt::format("cannot make the calendar {}: {}", path.string(),
                                                   error.message()));
        for (const auto& [file, text] :
             {std::pair{kDisplayName, info.title}, std::pair{kColor, info.color},
              std::pair{
                  kComponents,
                  std::string(info.entityType == CalendarEntityType::event ? "VEVENT" : "VTODO")}})
            if (auto written = writeAtomically(path / file, text); !written)
                return written;
        it = m_pendingCalendars.erase(it);
    }
    while (!m_pendingItems.empty()) {
        const auto it = m_pendingItems.begin();
        const auto stored = m_newItems.contains(it->first) ? std::nullopt : storedItem(it->first);
        if (it->second) {
            const auto& item = *it->second;
            const auto target = folder(item.calendarIdentifier);
            if (!target)
                return fail(Errc::notFound,
                            "there is no calendar \"" + item.calendarIdentifier + "\"");
            fs::path file = stored && stored->file.parent_path() == target->path
                                ? stored->file
                                : target->path / detail::itemFileName(item.identifier);
            if (!stored || stored->file != file)
                if (const auto other = readText(file)) {
                    const auto occupant = detail::parseCalendarItem(*other);
                    if (occupant && occupant->identifier != item.identifier)
                        return fail(Errc::conflict,
                                    fmt::format("{} already holds another item", file.string()));
                }
            const auto previous = stored ? readText(stored->file).value_or("") : std::string();
            auto text =
                detail::formatCalendarItem(item, previous, item.lastModified.value_or(now()));
            if (!text)
                return std::unexpected(text.error());
            if (auto written = writeAtomically(file, *text); !written)
                return written;
            noteOwnWrite(file, false);
            if (stored && stored->file != file) {
                fs::remove(stored->file);
                noteOwnWrite(stored->file, true);
            }
        } else if (stored) {
            std::error_code error;
            fs::remove(stored->file, error);
            if (error)
                return fail(Errc::ioError, fmt::format("cannot remove {}: {}",
                                                       stored->file.string(), error.message()));
            noteOwnWrite(stored->file, true);
        }
        m_newItems.erase(it->first);
        m_pendingItems.erase(it);
    }
    for (auto it = m_pendingCalendars.begin(); it != m_pendingCalendars.end();) {
        const fs::path path = [&] {
            for (const auto& root : m_roots)
                if (fs::is_directory(root / it->first))
                    return root / it->first;
            return fs::path();
        }();
        std::error_code error;
        if (!path.empty())
            fs::remove_all(path, error);
        m_listed.erase(path.native());
        if (error)
            return fail(Errc::ioError, fmt::format("cannot remove the calendar {}: {}",
                                                   path.string(), error.message()));
        it = m_pendingCalendars.erase(it);
    }
    return {};
}

} // namespace tasket::platform
