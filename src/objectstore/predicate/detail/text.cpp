#include "objectstore/predicate/detail/text.h"

#include "objectstore/predicate/predicate.h"
#include "platform/text.h"
#include "platform/unicode.h"

#include <memory>
#include <vector>

namespace tasket::objectstore::detail {

namespace {

bool isAscii(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    return true;
}

// Code points of UTF-8 text; each byte of an invalid sequence reads as
// U+FFFD.
std::vector<char32_t> codePoints(std::string_view text) {
    if (!isAscii(text))
        return platform::unicode::functions().codePoints(text);
    return std::vector<char32_t>(text.begin(), text.end());
}

} // namespace

bool foldAscii(std::string_view text, std::uint8_t options, char* out) {
    // ASCII has no diacritics and folds to lower case.
    return platform::copyAscii(text, out, (options & kCaseInsensitive) != 0);
}

std::string foldText(std::string_view text, std::uint8_t options) {
    if (options == 0)
        return std::string(text);
    std::string out(text.size(), '\0');
    if (foldAscii(text, options, out.data()))
        return out;
    return platform::unicode::functions().fold(text, (options & kCaseInsensitive) != 0,
                                               (options & kDiacriticInsensitive) != 0);
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
    return platform::unicode::functions().collate(a, b);
}

} // namespace tasket::objectstore::detail
