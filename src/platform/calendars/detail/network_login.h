// Logins for servers from the Secret Service (the desktop's keyring, over
// the session bus, through libsecret): items of the network-password schema
// that other programs use too ("org.gnome.keyring.NetworkPassword"), found
// by the server's protocol, host and port.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tasket::platform::detail {

struct NetworkLogin {
    std::string user;
    std::string password;
};

/// "scheme://host:port" of `url` (the port spelled out), or empty when
/// `url` is not one.
[[nodiscard]] std::string originOf(std::string_view url);

/// The login the Secret Service holds for `url`: an unlocked item with its
/// protocol and server, and its port or none, that names a user. nullopt
/// when there is none, or no session bus or Secret Service to ask; it never
/// prompts to unlock a keyring.
[[nodiscard]] std::optional<NetworkLogin> secretServiceLogin(std::string_view url);

} // namespace tasket::platform::detail
