#include "objectstore/history.h"

#include "platform/atomic_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

namespace {
// "TKHT" + format version 1 + little-endian 64-bit token + 32-bit checksum.
constexpr std::uint8_t kMagic[4] = {'T', 'K', 'H', 'T'};
constexpr std::uint8_t kFormatVersion = 1;
constexpr std::size_t kArchiveSize = 4 + 1 + 8 + 4;

std::uint32_t checksum(const std::uint8_t* p, std::size_t n) {
    std::uint32_t h = 2166136261u; // FNV-1a
    for (std::size_t i = 0; i < n; ++i)
        h = (h ^ p[i]) * 16777619u;
    return h;
}
} // namespace

std::vector<std::uint8_t> archiveToken(HistoryToken token) {
    std::vector<std::uint8_t> out(std::begin(kMagic), std::end(kMagic));
    out.push_back(kFormatVersion);
    auto v = static_cast<std::uint64_t>(token.value);
    for (int i = 0; i < 8; ++i)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    const std::uint32_t sum = checksum(out.data(), out.size());
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<std::uint8_t>(sum >> (8 * i)));
    return out;
}

platform::Result<HistoryToken> unarchiveToken(const std::vector<std::uint8_t>& data) {
    if (data.size() != kArchiveSize || std::memcmp(data.data(), kMagic, 4) != 0)
        return fail(Errc::parseError, "the data is not an archived history token");
    if (data[4] != kFormatVersion)
        return fail(Errc::parseError,
                    fmt::format("archived history token has unknown format {}", data[4]));
    std::uint32_t sum = 0;
    for (int i = 0; i < 4; ++i)
        sum |= std::uint32_t(data[13 + i]) << (8 * i);
    if (sum != checksum(data.data(), 13))
        return fail(Errc::parseError, "archived history token is damaged (checksum mismatch)");
    std::uint64_t v = 0;
    for (int i = 0; i < 8; ++i)
        v |= std::uint64_t(data[5 + i]) << (8 * i);
    return HistoryToken{static_cast<std::int64_t>(v)};
}

platform::Result<void> writeTokenFile(const std::filesystem::path& path, HistoryToken token) {
    const auto bytes = archiveToken(token);
    return platform::replaceFile(
        path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

platform::Result<std::optional<HistoryToken>> readTokenFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::error_code ec;
        if (!std::filesystem::exists(path, ec))
            return std::optional<HistoryToken>();
        return fail(Errc::ioError, fmt::format("cannot read {}", path.string()));
    }
    std::vector<std::uint8_t> data((std::istreambuf_iterator<char>(in)),
                                   std::istreambuf_iterator<char>());
    auto token = unarchiveToken(data);
    if (!token)
        return fail(Errc::parseError, fmt::format("{}: {}", path.string(), token.error().message));
    return std::optional<HistoryToken>(*token);
}

} // namespace tasket::objectstore
