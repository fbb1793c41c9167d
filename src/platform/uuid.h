// 128-bit identifiers, written as upper-case hyphenated text
// ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F") as the store and the main
// application spell them.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tasket::platform {

class Uuid {
  public:
    Uuid() = default; // the nil UUID
    explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : m_bytes(bytes) {}

    /// A new random (version 4) UUID.
    [[nodiscard]] static Uuid generate();
    /// Parses the 36-character hyphenated form, either case; nullopt otherwise.
    [[nodiscard]] static std::optional<Uuid> parse(std::string_view text);

    [[nodiscard]] std::string toString() const; // upper case
    [[nodiscard]] const std::array<std::uint8_t, 16>& bytes() const { return m_bytes; }
    [[nodiscard]] bool isNil() const;

    friend auto operator<=>(const Uuid&, const Uuid&) = default;

  private:
    std::array<std::uint8_t, 16> m_bytes{};
};

} // namespace tasket::platform
