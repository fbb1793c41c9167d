// Standard Base64 (RFC 4648, with padding): how bytes travel inside JSON,
// in preferences documents and transfer records alike.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::platform {

/// The padded standard Base64 text of `bytes`.
std::string encodeBase64(std::span<const std::uint8_t> bytes);
/// nullopt for text that is not canonical padded base64.
std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text);

} // namespace tasket::platform
