// What the project takes from ICU: the zones' Gregorian calendars, case
// mapping and folding, normalization and collation. ICU's libraries take
// longer to load and relocate than many runs of the programs take in all (a
// headless share, a plain `tasket add`, which need none of it), so they live
// in a module (module_loader.h) that is loaded the first time one of these
// is asked for. Text that is ASCII throughout is handled by the callers
// without it.
#pragma once

#include "platform/calendar.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::platform::unicode {

/// One time zone's Gregorian calendar, with Calendar's answers for skipped
/// and repeated local times. Its questions may be asked from several
/// threads at once.
class Zone {
  public:
    virtual ~Zone() = default;
    [[nodiscard]] virtual std::string id() const = 0;
    [[nodiscard]] virtual DateComponents components(Date date, int* utcOffset) const = 0;
    [[nodiscard]] virtual Date date(const DateComponents& components) const = 0;
};

/// The module's table.
struct Functions {
    static constexpr int kVersion = 1;
    int version;
    /// The zone this process runs in, read afresh (TZ, then /etc/localtime).
    std::shared_ptr<const Zone> (*hostZone)();
    /// The zone with that ICU identifier; null for one ICU does not know.
    std::shared_ptr<const Zone> (*zoneNamed)(std::string_view id);
    /// Lower case by the root locale's rules.
    std::string (*lowercased)(std::string_view text);
    /// Full case folding (`caseInsensitive`), then canonical decomposition
    /// without nonspacing marks and recomposition (`diacriticInsensitive`).
    /// Invalid UTF-8 reads as U+FFFD.
    std::string (*fold)(std::string_view text, bool caseInsensitive, bool diacriticInsensitive);
    /// The code points of UTF-8 text, an invalid sequence reading as U+FFFD.
    std::vector<char32_t> (*codePoints)(std::string_view text);
    /// The default locale's order at secondary strength (case ignored):
    /// negative, zero or positive.
    int (*collate)(std::string_view a, std::string_view b);
};

inline constexpr const char* kModuleEntry = "tasket_unicode_functions";

/// The table, loading the module on first use. Without it the program
/// cannot read dates or compare text, so a missing module stops the process
/// (fatal.h), naming what to reinstall.
const Functions& functions();

} // namespace tasket::platform::unicode
