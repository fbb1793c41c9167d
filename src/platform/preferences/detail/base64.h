// Standard base64 (RFC 4648, with padding) for the byte values of a
// preferences document.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::platform::detail {

std::string encodeBase64(const std::vector<std::uint8_t>& bytes);
/// nullopt for text that is not canonical padded base64.
std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text);

} // namespace tasket::platform::detail
