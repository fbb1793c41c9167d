#include "platform/uuid.h"

#include <uuid/uuid.h>

#include <algorithm>

namespace tasket::platform {

Uuid Uuid::generate() {
    std::array<std::uint8_t, 16> b{};
    uuid_generate_random(b.data());
    return Uuid(b);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36)
        return std::nullopt;
    char buffer[37];
    std::copy(text.begin(), text.end(), buffer);
    buffer[36] = '\0';
    std::array<std::uint8_t, 16> b{};
    if (uuid_parse(buffer, b.data()) != 0)
        return std::nullopt;
    return Uuid(b);
}

std::string Uuid::toString() const {
    char buffer[37];
    uuid_unparse_upper(m_bytes.data(), buffer);
    return std::string(buffer, 36);
}

bool Uuid::isNil() const {
    return std::all_of(m_bytes.begin(), m_bytes.end(), [](std::uint8_t x) { return x == 0; });
}

} // namespace tasket::platform
