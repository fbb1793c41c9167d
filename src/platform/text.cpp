#include "platform/text.h"

#include "platform/unicode.h"

#include <fmt/format.h>

namespace tasket::platform {

std::size_t utf8SequenceLength(std::string_view s, std::size_t i) {
    const auto lead = static_cast<unsigned char>(s[i]);
    if (lead < 0x80)
        return 1;
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        low = lead == 0xe0 ? 0xa0 : 0x80;
        high = lead == 0xed ? 0x9f : 0xbf;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        low = lead == 0xf0 ? 0x90 : 0x80;
        high = lead == 0xf4 ? 0x8f : 0xbf;
    } else {
        return 0;
    }
    if (i + length > s.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        const auto c = static_cast<unsigned char>(s[i + k]);
        if (c < (k == 1 ? low : 0x80) || c > (k == 1 ? high : 0xbf))
            return 0;
    }
    return length;
}

void appendJsonString(std::string& out, std::string_view text, JsonSolidus solidus) {
    // Printable ASCII that needs no escape goes out a run at a time.
    const auto plain = [solidus](unsigned char c) {
        return c >= 0x20 && c < 0x80 && c != '"' && c != '\\' &&
               (c != '/' || solidus == JsonSolidus::literal);
    };
    out.reserve(out.size() + text.size() + 2);
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        std::size_t end = i;
        while (end < text.size() && plain(static_cast<unsigned char>(text[end])))
            ++end;
        if (end > i) {
            out.append(text, i, end - i);
            i = end;
            continue;
        }
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(text, i);
            if (length == 0) {
                out += "\xef\xbf\xbd"; // U+FFFD for a byte that starts no character
                ++i;
            } else {
                out.append(text.substr(i, length));
                i += length;
            }
            continue;
        }
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '/': out += solidus == JsonSolidus::escaped ? "\\/" : "/"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        default:
            if (c < 0x20)
                out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
            else
                out += static_cast<char>(c);
        }
        ++i;
    }
    out += '"';
}

bool copyAscii(std::string_view text, char* out, bool lowercase) {
    // No early exit, so that the loop vectorizes.
    const unsigned char upper = lowercase ? 0x20 : 0;
    unsigned char seen = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        seen |= c;
        out[i] = static_cast<char>(c | (static_cast<unsigned char>(c - 'A') < 26 ? upper : 0));
    }
    return seen < 0x80;
}

std::string lowercased(std::string_view text) {
    std::string out(text.size(), '\0');
    if (copyAscii(text, out.data(), true))
        return out;
    return unicode::functions().lowercased(text);
}

} // namespace tasket::platform
