// Calendars on CalDAV servers (RFC 4791) over libcurl: each source is an
// account URL; its calendars are found from the account's principal and
// calendar home, and each calendar is a collection named by its URL. An
// item is one resource holding a VCALENDAR with one VTODO or VEVENT.
//
// Writes are conditional: a new item is PUT with If-None-Match: *, a
// changed or removed one with If-Match and the entity tag last read, so a
// change another client made in between fails with a conflict instead of
// being overwritten; when the server gave no entity tag for the version
// last seen, the change is made only while the server still holds that
// version. A read that fails is never taken for an item that is gone.
// Credentials come from the Secret Service (a network password for the
// server's protocol, host and port), else from the netrc file libcurl
// reads (the given one, else ~/.netrc); they never appear in a URL we build.
// Identifiers never reach a URL as they are: a resource's name is a safe
// name derived from the identifier, percent-encoded on top.
#pragma once

#include "platform/calendars/staged_calendar_store.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>

namespace tasket::platform {

struct CaldavOptions {
    std::filesystem::path netrcFile; // empty: libcurl's default
    long timeoutSeconds = 30;
    bool secretService = true; // logins from the Secret Service before the netrc file
};

class CaldavCalendarStore final : public StagedCalendarStore {
  public:
    using Options = CaldavOptions;
    /// A store over the accounts at `urls` (each a source, named by its URL).
    explicit CaldavCalendarStore(std::vector<std::string> urls, Options options = {});
    ~CaldavCalendarStore() override;

    /// Whether `source` names a CalDAV account ("http://" or "https://").
    [[nodiscard]] static bool isUrl(std::string_view source);

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
    [[nodiscard]] Result<std::optional<CalendarItem>>
    findItem(std::string_view identifier) const override;
    /// What the calendar holds: known without a request once changesSince
    /// read it or, with keepStateIn, when an earlier program learned it,
    /// else looked up.
    [[nodiscard]] std::optional<CalendarEntityType>
    calendarKind(std::string_view identifier) const override;
    /// The collection's kind and sync-token (RFC 6578), else its CTag: one
    /// request, which also looks the calendar up (calendarWithIdentifier
    /// then asks no more).
    [[nodiscard]] std::optional<std::string>
    changeToken(std::string_view identifier) const override;
    /// The sync-token last read with the resources this store wrote since
    /// and their entity tags, which changesSince then tells from another
    /// client's changes: no request. When the writes are many or untagged,
    /// the collection's changes since (sync-collection) instead, if they are
    /// this store's own writes alone: one request. Nullopt for a server
    /// that keeps no sync-token.
    [[nodiscard]] std::optional<std::string>
    tokenAfterOwnWrites(std::string_view identifier) const override;

    /// The changes since `token` (RFC 6578 sync-collection, with the
    /// changed items' data) but for this store's own writes it names: one
    /// request, which also tells that the calendar is still there and what
    /// it holds. Nullopt for a CTag, or when the server no longer knows the
    /// token; a token this store did not give is read as none.
    [[nodiscard]] std::optional<CalendarChanges>
    changesSince(std::string_view identifier, std::string_view token) const override;
    /// True: a server without sync-tokens (a CTag alone) then has each
    /// calendar read whole after another program's write.
    [[nodiscard]] bool tellsChangesSince() const override { return true; }

    /// Keeps the version of each item last written or read by itself (its
    /// URL, entity tag and text) in `folder`, one file each, and what each
    /// calendar it learned of holds, so that a later program changes an
    /// item without reading it or its calendar first; the write's If-Match
    /// still refuses a version that is no longer current, and a calendar
    /// found gone (or a write it refuses as gone) is forgotten.
    void keepStateIn(std::filesystem::path folder) override;
    /// The version a change would be made against: the one last listed,
    /// written or kept, without a request when there is one.
    [[nodiscard]] Result<std::optional<CalendarItem>>
    itemToChange(std::string_view identifier) const override;

    /// Every calendar of every source, or the first failure to reach one.
    /// calendars() asks the server each time; a lookup by identifier uses
    /// the last answer (and the calendars read one by one since), else
    /// reads a calendar under exactly one source's URL by itself, else
    /// discovers again.
    [[nodiscard]] Result<std::vector<CalendarInfo>> discover() const;
    /// HTTP requests made so far.
    [[nodiscard]] std::size_t requestCount() const;

    struct Connection;

  private:
    // An item as this store last listed or wrote it: its entity tag is the
    // version a change is made against (a fetch to check that the item
    // exists does not move it, so another client's change stays a conflict).
    struct Remote {
        std::string href; // absolute URL of the resource
        std::string etag;
        std::string text;
        CalendarItem item;
        bool kept = false; // read from a version an earlier program kept
    };
    [[nodiscard]] Result<std::vector<Remote>> query(const CalendarInfo& calendar) const;
    /// The calendars of `listed` holding `type`, with the pending changes.
    [[nodiscard]] std::vector<CalendarInfo> withPending(std::vector<CalendarInfo> listed,
                                                        CalendarEntityType type) const;
    /// Where the item is and the version a change is made against; nullopt
    /// when no calendar holds it, a failure when a calendar cannot be read.
    [[nodiscard]] Result<std::optional<Remote>> remote(std::string_view identifier) const;
    /// The version a change to the item is made against: the one last
    /// listed or written when the server tagged it (the write's If-Match
    /// then finds out whether it is still current), else, when `orKept`,
    /// the one an earlier program kept, else as remote() finds it.
    [[nodiscard]] Result<std::optional<Remote>> versionToChange(std::string_view identifier,
                                                                bool orKept = true) const;
    [[nodiscard]] Result<bool> canChange(std::string_view identifier) const override;
    /// The pending item `identifier` when there is one, else the item of
    /// the version `stored` finds.
    [[nodiscard]] Result<std::optional<CalendarItem>>
    pendingOr(std::string_view identifier,
              const std::function<Result<std::optional<Remote>>()>& stored) const;
    /// The same among the calendars `known`: where it was last seen, where
    /// this store would put it, then, when `everywhere`, in every one.
    [[nodiscard]] Result<std::optional<Remote>> remoteIn(std::string_view identifier,
                                                         const std::vector<CalendarInfo>& known,
                                                         bool everywhere) const;
    /// The entity tag to make a change to `stored` against: its own, else
    /// the server's current one when the server still holds the same item;
    /// a conflict when it holds another or gives no tag.
    [[nodiscard]] Result<std::string> currentTag(const Remote& stored) const;
    [[nodiscard]] Result<> commitLocked() override;
    void resetLocked() override;

    const std::vector<std::string> m_urls;
    std::unique_ptr<Connection> m_connection;
    mutable std::map<std::string, std::string, std::less<>> m_homes; // source -> calendar home
    mutable std::map<std::string, Remote, std::less<>> m_seen;       // by identifier
    mutable std::optional<std::vector<CalendarInfo>> m_listed;       // the last discovery
    // Calendars read one by one since, by identifier.
    mutable std::map<std::string, CalendarInfo, std::less<>> m_lookedUp;
    std::set<std::string, std::less<>> m_newCalendars;
    // Of each calendar: the sync-token changeToken or changesSince last
    // read (empty when the server keeps none), what the calendar holds,
    // and the resources written since, by URL, with the entity tag each
    // write got (empty when none; nullopt: removed).
    struct TokenRead {
        std::string syncToken;
        std::optional<CalendarEntityType> kind;
        std::map<std::string, std::optional<std::string>> written;
    };
    mutable std::map<std::string, TokenRead, std::less<>> m_tokens;
    // Calendars a sync-collection found since they were last listed, by
    // identifier: what each holds.
    mutable std::map<std::string, CalendarEntityType, std::less<>> m_synced;
    // Versions kept between programs (see keepStateIn); empty: none.
    std::filesystem::path m_versionsFolder;
    [[nodiscard]] std::filesystem::path versionFile(std::string_view identifier) const;
    /// Keeps `remote` when the server tagged it, else forgets the item.
    void keepVersion(const Remote& remote) const;
    void forgetVersion(std::string_view identifier) const;
    [[nodiscard]] std::optional<Remote> keptVersion(std::string_view identifier) const;
    // What the calendars an earlier program learned of hold, by identifier
    // (read from the state folder when first asked; see keepStateIn).
    mutable std::optional<std::map<std::string, CalendarEntityType, std::less<>>> m_keptKinds;
    [[nodiscard]] std::optional<CalendarEntityType> keptKind(std::string_view calendar) const;
    /// Keeps what `calendar` holds (nullopt: it is gone), written to the
    /// state folder when that changes anything.
    void keepKind(std::string_view calendar, std::optional<CalendarEntityType> kind) const;
    void noteWrite(const std::string& calendar, const std::string& href,
                   std::optional<std::string> etag);
    /// The collection at `url` read by itself (one request): the calendar,
    /// when it is one of a known source (kept in m_lookedUp), and its tokens.
    struct LookedUp {
        std::optional<CalendarInfo> calendar;
        std::string syncToken; // empty when the server keeps none
        std::string token;     // the sync-token, else the CTag
    };
    [[nodiscard]] LookedUp lookUp(const std::string& url) const;
    /// The source a calendar at `url` belongs to: the one whose URL it is
    /// under, when only one is; else only discovery can tell.
    [[nodiscard]] std::optional<std::string> sourceOf(std::string_view url) const;
    void forgetCalendars();
};

} // namespace tasket::platform
