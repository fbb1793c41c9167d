// Calendars as vdir folders, the layout other calendar clients and sync
// tools share: each source is a root folder, each calendar a folder in it
// named by the calendar's identifier, with `displayname` and `color` files
// (and `supported-components`, "VTODO" or "VEVENT", saying what it holds),
// and each item one `<UID>.ics` file with a VCALENDAR holding one VTODO or
// VEVENT. Writes go to a temporary file renamed over the item's file, so a
// reader sees the old or the new item, never half of one.
//
// Nothing is cached: every read looks at the files, so edits made by other
// programs are seen at once. An item another program wrote keeps its file
// name; a new item's file name is its UID when that is a plain name, else a
// name derived from it. Identifiers that are not plain names never reach
// the file system as paths.
#pragma once

#include "platform/calendars/staged_calendar_store.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <unordered_map>

namespace tasket::platform {

class VdirCalendarStore final : public StagedCalendarStore {
  public:
    /// A store over the vdir roots `roots` (each a source, named by its
    /// path; a missing root is made when a calendar is first saved in it).
    explicit VdirCalendarStore(std::vector<std::filesystem::path> roots);

    [[nodiscard]] std::vector<CalendarSource> sources() const override;
    [[nodiscard]] std::vector<CalendarInfo> calendars(CalendarEntityType type) const override;
    [[nodiscard]] std::optional<CalendarInfo>
    calendarWithIdentifier(std::string_view identifier) const override;
    [[nodiscard]] Result<> saveCalendar(CalendarInfo& calendar, bool commit) override;
    [[nodiscard]] Result<> removeCalendar(std::string_view identifier, bool commit) override;

    [[nodiscard]] Result<std::vector<CalendarItem>>
    items(CalendarEntityType kind, std::span<const std::string> calendarIdentifiers) const override;
    [[nodiscard]] std::optional<CalendarItem>
    itemWithIdentifier(std::string_view identifier) const override;
    /// The names, inodes, sizes and change times of the calendar's item
    /// files, hashed: no file is read.
    [[nodiscard]] std::optional<std::string>
    changeToken(std::string_view identifier) const override;
    /// From what changeToken last listed, with this store's own writes
    /// since put in: no file is listed.
    [[nodiscard]] std::optional<std::string>
    tokenAfterOwnWrites(std::string_view identifier) const override;

  private:
    struct Folder {
        CalendarInfo info;
        std::filesystem::path path;
    };
    struct StoredItem {
        CalendarItem item;
        std::filesystem::path file;
    };
    /// Calls `visit` with each item file of `folder` that parses, until it
    /// returns false; fails when the folder cannot be listed.
    [[nodiscard]] Result<> eachItemFile(
        const std::filesystem::path& folder,
        const std::function<bool(CalendarItem, const std::filesystem::path&)>& visit) const;
    [[nodiscard]] std::vector<Folder> folders() const;
    [[nodiscard]] std::optional<Folder> folder(std::string_view identifier) const;
    [[nodiscard]] std::optional<StoredItem> storedItem(std::string_view identifier) const;
    [[nodiscard]] Result<> commitLocked() override;

    // A file read before and unchanged since (same modification time and
    // size) is not parsed again.
    struct ParsedFile {
        std::int64_t modified = -1; // nanoseconds since the epoch
        std::int64_t size = -1;
        std::optional<CalendarItem> item; // nullopt: not an item
    };

    const std::vector<std::filesystem::path> m_roots;
    mutable std::unordered_map<std::string, ParsedFile> m_parsed;                   // by path
    mutable std::map<std::string, std::filesystem::path, std::less<>> m_fileOfItem; // last seen
    // The hash of each item file changeToken last listed, by folder, then
    // file name; commits put their own writes in.
    mutable std::unordered_map<std::string, std::unordered_map<std::string, std::uint64_t>>
        m_listed;
    void noteOwnWrite(const std::filesystem::path& file, bool removed);
};

} // namespace tasket::platform
