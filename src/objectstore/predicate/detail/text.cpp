#include "objectstore/predicate/detail/text.h"

#include "objectstore/predicate/predicate.h"

#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <memory>
#include <vector>

namespace tasket::objectstore::detail {

namespace {

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

bool isAscii(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    return true;
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

} // namespace

std::string foldText(std::string_view text, std::uint8_t options) {
    if (options == 0)
        return std::string(text);
    if (isAscii(text)) {
        // ASCII has no diacritics and folds to lower case.
        std::string out(text);
        if (options & kCaseInsensitive)
            for (char& c : out)
                if (c >= 'A' && c <= 'Z')
                    c = static_cast<char>(c - 'A' + 'a');
        return out;
    }
    std::u16string utf16 = toUtf16(text);
    if (options & kCaseInsensitive)
        utf16 = foldCase(utf16);
    if (options & kDiacriticInsensitive)
        utf16 = removeDiacritics(utf16);
    return toUtf8(utf16);
}

bool textContains(std::string_view text, std::string_view part, std::uint8_t options) {
    if (options == 0)
        return text.find(part) != std::string_view::npos;
    return foldText(text, options).find(foldText(part, options)) != std::string::npos;
}

bool textBeginsWith(std::string_view text, std::string_view part, std::uint8_t options) {
    if (options == 0)
        return text.starts_with(part);
    return std::string_view(foldText(text, options)).starts_with(foldText(part, options));
}

bool textEndsWith(std::string_view text, std::string_view part, std::uint8_t options) {
    if (options == 0)
        return text.ends_with(part);
    return std::string_view(foldText(text, options)).ends_with(foldText(part, options));
}

bool textLike(std::string_view text, std::string_view pattern, std::uint8_t options) {
    const std::vector<char32_t> s = codePoints(foldText(text, options));
    const std::vector<char32_t> raw = codePoints(foldText(pattern, options));

    // The pattern as tokens: a code point, or kAny ('*') / kOne ('?').
    constexpr char32_t kAny = 0xFFFFFFFF, kOne = 0xFFFFFFFE;
    std::vector<char32_t> p;
    p.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == U'\\' && i + 1 < raw.size())
            p.push_back(raw[++i]);
        else if (raw[i] == U'*')
            p.push_back(kAny);
        else if (raw[i] == U'?')
            p.push_back(kOne);
        else
            p.push_back(raw[i]);
    }

    // Greedy matching that backtracks only to the last '*': O(len(s) * len(p)).
    std::size_t si = 0, pi = 0, starP = std::string::npos, starS = 0;
    while (si < s.size()) {
        if (pi < p.size() && p[pi] != kAny && (p[pi] == kOne || p[pi] == s[si])) {
            ++si;
            ++pi;
        } else if (pi < p.size() && p[pi] == kAny) {
            starP = pi++;
            starS = si;
        } else if (starP != std::string::npos) {
            pi = starP + 1;
            si = ++starS;
        } else {
            return false;
        }
    }
    while (pi < p.size() && p[pi] == kAny)
        ++pi;
    return pi == p.size();
}

int collateLocalized(std::string_view a, std::string_view b) {
    UCollator* collator = threadCollator();
    if (!collator)
        return a.compare(b);
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult r = ucol_strcollUTF8(collator, a.data(), static_cast<int32_t>(a.size()),
                                                b.data(), static_cast<int32_t>(b.size()), &status);
    return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

} // namespace tasket::objectstore::detail
