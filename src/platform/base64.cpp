#include "platform/base64.h"

#include <array>

namespace tasket::platform {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeReverse() {
    std::array<std::int8_t, 256> table{};
    table.fill(-1);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    return table;
}
constexpr auto kReverse = makeReverse();

} // namespace

std::string encodeBase64(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t n =
            (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += kAlphabet[(n >> 6) & 63];
        out += kAlphabet[n & 63];
    }
    if (const std::size_t rest = bytes.size() - i; rest > 0) {
        std::uint32_t n = std::uint32_t{bytes[i]} << 16;
        if (rest == 2)
            n |= std::uint32_t{bytes[i + 1]} << 8;
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::vector<std::uint8_t> out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const std::size_t padding =
            last ? (text[i + 3] == '=' ? 1u : 0u) + (text[i + 2] == '=' ? 1u : 0u) : 0u;
        if (padding == 1 && text[i + 2] == '=') // "x=y=" style
            return std::nullopt;
        std::uint32_t n = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            std::int8_t sextet = 0;
            if (k < 4 - padding) {
                sextet = kReverse[static_cast<unsigned char>(text[i + k])];
                if (sextet < 0)
                    return std::nullopt;
            }
            n = (n << 6) | static_cast<std::uint32_t>(sextet);
        }
        // Canonical form only: the bits that padding drops must be zero.
        if ((padding == 1 && (n & 0xFF) != 0) || (padding == 2 && (n & 0xFFFF) != 0))
            return std::nullopt;
        out.push_back(static_cast<std::uint8_t>(n >> 16));
        if (padding < 2)
            out.push_back(static_cast<std::uint8_t>(n >> 8));
        if (padding < 1)
            out.push_back(static_cast<std::uint8_t>(n));
    }
    return out;
}

} // namespace tasket::platform
