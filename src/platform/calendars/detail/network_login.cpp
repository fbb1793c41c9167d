#include "platform/calendars/detail/network_login.h"

#include <curl/curl.h>
#include <libsecret/secret.h>

#include <cstdlib>
#include <filesystem>

namespace tasket::platform::detail {

namespace {

struct Origin {
    std::string scheme;
    std::string host;
    int port = 0;
};

std::optional<Origin> parse(std::string_view url) {
    CURLU* parsed = curl_url();
    std::optional<Origin> found;
    char *scheme = nullptr, *host = nullptr, *port = nullptr;
    if (curl_url_set(parsed, CURLUPART_URL, std::string(url).c_str(), 0) == CURLUE_OK &&
        curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK &&
        curl_url_get(parsed, CURLUPART_HOST, &host, 0) == CURLUE_OK &&
        curl_url_get(parsed, CURLUPART_PORT, &port, CURLU_DEFAULT_PORT) == CURLUE_OK)
        found = Origin{scheme, host, std::atoi(port)};
    curl_free(scheme);
    curl_free(host);
    curl_free(port);
    curl_url_cleanup(parsed);
    return found;
}

// Whether there is a session bus to ask; without one GLib would try to
// start one for an X11 display.
bool hasSessionBus() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address)
        return true;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::error_code error;
    return runtime && *runtime &&
           std::filesystem::exists(std::filesystem::path(runtime) / "bus", error);
}

} // namespace

std::string originOf(std::string_view url) {
    const auto origin = parse(url);
    return origin ? origin->scheme + "://" + origin->host + ":" + std::to_string(origin->port) : "";
}

std::optional<NetworkLogin> secretServiceLogin(std::string_view url) {
    const auto origin = parse(url);
    if (!origin || !hasSessionBus())
        return std::nullopt;
    GHashTable* wanted =
        secret_attributes_build(SECRET_SCHEMA_COMPAT_NETWORK, "protocol", origin->scheme.c_str(),
                                "server", origin->host.c_str(), nullptr);
    GError* error = nullptr;
    GList* items = secret_service_search_sync(
        nullptr, SECRET_SCHEMA_COMPAT_NETWORK, wanted,
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS), nullptr,
        &error);
    g_hash_table_unref(wanted);
    g_clear_error(&error); // no service, no keyring: nothing found
    std::optional<NetworkLogin> found;
    for (GList* each = items; each && !found; each = each->next) {
        auto* item = static_cast<SecretItem*>(each->data);
        if (secret_item_get_locked(item))
            continue;
        GHashTable* attributes = secret_item_get_attributes(item);
        const auto* user = static_cast<const char*>(g_hash_table_lookup(attributes, "user"));
        const auto* port = static_cast<const char*>(g_hash_table_lookup(attributes, "port"));
        SecretValue* secret = secret_item_get_secret(item);
        const char* password = secret ? secret_value_get_text(secret) : nullptr;
        if (user && *user && password && (!port || std::atoi(port) == origin->port))
            found = NetworkLogin{user, password};
        if (secret)
            secret_value_unref(secret);
        g_hash_table_unref(attributes);
    }
    g_list_free_full(items, g_object_unref);
    return found;
}

} // namespace tasket::platform::detail
