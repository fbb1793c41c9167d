// The Unicode module: ICU behind platform/unicode.h's table. Programs load
// it the first time they read a date in a zone or compare text that is not
// ASCII throughout.
#include "platform/civil.h"
#include "platform/unicode.h"

#include <fmt/format.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace {

using namespace tasket::platform;

// ---- Text ----------------------------------------------------------------------------

std::u16string toUtf16(std::string_view text) {
    std::u16string out(text.size() + 1, u'\0');
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length, text.data(),
                         static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &status);
    out.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
    return out;
}

std::string toUtf8(const std::u16string& text) {
    std::string out(text.size() * 3 + 1, '\0');
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length, text.data(),
                       static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &status);
    out.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
    return out;
}

std::u16string foldCase(const std::u16string& text) {
    std::u16string out(text.size() * 3 + 1, u'\0'); // full folding expands at most threefold
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length =
        u_strFoldCase(out.data(), static_cast<int32_t>(out.size()), text.data(),
                      static_cast<int32_t>(text.size()), U_FOLD_CASE_DEFAULT, &status);
    out.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
    return out;
}

std::u16string normalize(const UNormalizer2* normalizer, const std::u16string& text) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = unorm2_normalize(normalizer, text.data(), static_cast<int32_t>(text.size()),
                                      nullptr, 0, &status);
    std::u16string out(static_cast<std::size_t>(length), u'\0');
    status = U_ZERO_ERROR;
    length = unorm2_normalize(normalizer, text.data(), static_cast<int32_t>(text.size()),
                              out.data(), static_cast<int32_t>(out.size()), &status);
    out.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
    return out;
}

std::u16string removeDiacritics(const std::u16string& text) {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* nfd = unorm2_getNFDInstance(&status);
    const UNormalizer2* nfc = unorm2_getNFCInstance(&status);
    if (U_FAILURE(status))
        return text;
    const std::u16string decomposed = normalize(nfd, text);
    std::u16string stripped;
    stripped.reserve(decomposed.size());
    for (std::size_t i = 0; i < decomposed.size();) {
        UChar32 c = 0;
        const std::size_t start = i;
        U16_NEXT(decomposed.data(), i, decomposed.size(), c);
        if (u_charType(c) != U_NON_SPACING_MARK)
            stripped.append(decomposed, start, i - start);
    }
    return normalize(nfc, stripped);
}

// Code points of UTF-8 text; each byte of an invalid sequence reads as
// U+FFFD, like the conversions above.
std::vector<char32_t> codePoints(std::string_view text) {
    const std::u16string utf16 = toUtf16(text);
    std::vector<char32_t> out;
    out.reserve(utf16.size());
    for (std::size_t i = 0; i < utf16.size();) {
        UChar32 c = 0;
        U16_NEXT(utf16.data(), i, utf16.size(), c);
        out.push_back(static_cast<char32_t>(c));
    }
    return out;
}

struct CollatorDeleter {
    void operator()(UCollator* c) const { ucol_close(c); }
};

// A collator is not safe to share between threads, so each thread clones
// the process-wide one on first use.
UCollator* threadCollator() {
    static const std::unique_ptr<UCollator, CollatorDeleter> master = [] {
        // The C/POSIX locale's tailoring sorts by code point; such a user
        // gets the root collation, the language-neutral alphabetical order.
        const std::string_view locale = uloc_getDefault();
        const bool posix =
            locale.find("POSIX") != std::string_view::npos || locale == "c" || locale == "C";
        UErrorCode status = U_ZERO_ERROR;
        UCollator* c = ucol_open(posix ? "" : nullptr, &status);
        if (U_FAILURE(status)) {
            status = U_ZERO_ERROR;
            c = ucol_open("", &status);
        }
        if (c)
            ucol_setStrength(c, UCOL_SECONDARY);
        return std::unique_ptr<UCollator, CollatorDeleter>(c);
    }();
    thread_local const std::unique_ptr<UCollator, CollatorDeleter> mine = [] {
        UErrorCode status = U_ZERO_ERROR;
        return std::unique_ptr<UCollator, CollatorDeleter>(
            master ? ucol_clone(master.get(), &status) : nullptr);
    }();
    return mine.get();
}

std::string fold(std::string_view text, bool caseInsensitive, bool diacriticInsensitive) {
    std::u16string utf16 = toUtf16(text);
    if (caseInsensitive)
        utf16 = foldCase(utf16);
    if (diacriticInsensitive)
        utf16 = removeDiacritics(utf16);
    return toUtf8(utf16);
}

std::string lowercased(std::string_view text) {
    std::string out;
    icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())))
        .toLower(icu::Locale::getRoot())
        .toUTF8String(out);
    return out;
}

int collate(std::string_view a, std::string_view b) {
    UCollator* collator = threadCollator();
    if (!collator)
        return a.compare(b);
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult r = ucol_strcollUTF8(collator, a.data(), static_cast<int32_t>(a.size()),
                                                b.data(), static_cast<int32_t>(b.size()), &status);
    return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

// ---- Calendars -----------------------------------------------------------------------

constexpr double kMillisecondsPerSecond = 1000.0;

// Whole seconds go through ICU, which counts in milliseconds (Calendar
// carries the fraction of a second beside them).
UDate wholeMilliseconds(Date date) {
    return std::floor(date.unixSeconds()) * kMillisecondsPerSecond;
}

void check(UErrorCode status, const char* what) {
    // ICU fails here only for dates beyond its range (about ±5.8 million
    // years), which no caller has: a programmer error.
    if (U_FAILURE(status))
        throw std::out_of_range(fmt::format("Calendar: {} failed: {}", what, u_errorName(status)));
}

// A prototype calendar, cloned for each question that sets fields: an
// icu::Calendar keeps its fields in itself, so one instance must not answer
// two threads. Its zone's const questions (the offset at an instant) may be
// asked at once.
class IcuZone final : public unicode::Zone {
  public:
    explicit IcuZone(icu::TimeZone* adoptedZone) {
        UErrorCode status = U_ZERO_ERROR;
        auto calendar = std::make_unique<icu::GregorianCalendar>(adoptedZone, status);
        check(status, "making the calendar");
        calendar->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
        calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
        m_prototype = std::move(calendar);
    }

    std::string id() const override {
        icu::UnicodeString id;
        m_prototype->getTimeZone().getID(id);
        std::string out;
        id.toUTF8String(out);
        return out;
    }

    DateComponents components(Date date, int* utcOffset) const override {
        const UDate at = wholeMilliseconds(date);
        UErrorCode status = U_ZERO_ERROR;
        if (at >= civil::kFrom * kMillisecondsPerSecond &&
            at < civil::kTo * kMillisecondsPerSecond) {
            // Only the zone's offset is ICU's: a calendar of our own would
            // cost a clone of the prototype and its zone for each date.
            std::int32_t raw = 0, daylight = 0;
            m_prototype->getTimeZone().getOffset(at, false, raw, daylight, status);
            check(status, "reading a date");
            if (utcOffset)
                *utcOffset = (raw + daylight) / 1000;
            return civil::components(
                civil::floorDiv(static_cast<std::int64_t>(at) + raw + daylight, 1000));
        }
        auto calendar = clone();
        calendar->setTime(at, status);
        DateComponents out;
        out.year = calendar->get(UCAL_EXTENDED_YEAR, status);
        out.month = calendar->get(UCAL_MONTH, status) + 1;
        out.day = calendar->get(UCAL_DATE, status);
        out.hour = calendar->get(UCAL_HOUR_OF_DAY, status);
        out.minute = calendar->get(UCAL_MINUTE, status);
        out.second = calendar->get(UCAL_SECOND, status);
        out.weekday = calendar->get(UCAL_DAY_OF_WEEK, status);
        if (utcOffset)
            *utcOffset =
                (calendar->get(UCAL_ZONE_OFFSET, status) + calendar->get(UCAL_DST_OFFSET, status)) /
                1000;
        check(status, "reading a date");
        return out;
    }

    Date date(const DateComponents& c) const override {
        auto calendar = clone();
        calendar->clear();
        calendar->set(UCAL_EXTENDED_YEAR, c.year);
        calendar->set(UCAL_MONTH, c.month - 1);
        calendar->set(UCAL_DATE, c.day);
        calendar->set(UCAL_HOUR_OF_DAY, c.hour);
        calendar->set(UCAL_MINUTE, c.minute);
        calendar->set(UCAL_SECOND, c.second);
        UErrorCode status = U_ZERO_ERROR;
        const UDate time = calendar->getTime(status);
        check(status, "making a date");
        return Date::fromUnix(time / kMillisecondsPerSecond);
    }

  private:
    std::unique_ptr<icu::Calendar> clone() const {
        return std::unique_ptr<icu::Calendar>(m_prototype->clone());
    }

    std::unique_ptr<icu::Calendar> m_prototype;
};

std::shared_ptr<const unicode::Zone> hostZone() {
    // Read afresh on each call (TZ, then /etc/localtime), not ICU's cached default.
    return std::make_shared<const IcuZone>(icu::TimeZone::detectHostTimeZone());
}

std::shared_ptr<const unicode::Zone> zoneNamed(std::string_view zoneID) {
    const auto id = icu::UnicodeString::fromUTF8(
        icu::StringPiece(zoneID.data(), static_cast<int32_t>(zoneID.size())));
    std::unique_ptr<icu::TimeZone> timeZone(icu::TimeZone::createTimeZone(id));
    if (!timeZone || *timeZone == icu::TimeZone::getUnknown())
        return nullptr;
    return std::make_shared<const IcuZone>(timeZone.release());
}

constexpr unicode::Functions kFunctions{
    .version = unicode::Functions::kVersion,
    .hostZone = hostZone,
    .zoneNamed = zoneNamed,
    .lowercased = lowercased,
    .fold = fold,
    .codePoints = codePoints,
    .collate = collate,
};

} // namespace

extern "C" __attribute__((visibility("default"))) const unicode::Functions*
tasket_unicode_functions() {
    return &kFunctions;
}
