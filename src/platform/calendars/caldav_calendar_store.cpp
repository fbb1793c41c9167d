#include "platform/calendars/caldav_calendar_store.h"

#include "platform/atomic_file.h"
#include "platform/calendars/detail/ical_codec.h"
#include "platform/calendars/detail/network_login.h"
#include "platform/uuid.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>

namespace tasket::platform {

namespace {

constexpr long kConnectSeconds = 5;

constexpr const char* kDav = "DAV:";
constexpr const char* kCaldav = "urn:ietf:params:xml:ns:caldav";
constexpr const char* kApple = "http://apple.com/ns/ical/";
constexpr const char* kCalendarServer = "http://calendarserver.org/ns/";

struct Response {
    long status = 0;
    std::string body;
    std::string etag;
};

std::string xmlEscape(std::string_view text) {
    std::string out;
    for (const char ch : text) {
        switch (ch) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += ch;
        }
    }
    return out;
}

// Every byte but the unreserved ones (RFC 3986) as %XX.
std::string percentEncode(std::string_view text) {
    std::string out;
    for (const unsigned char ch : text) {
        if (std::isalnum(ch) || ch == '-' || ch == '.' || ch == '_' || ch == '~')
            out += static_cast<char>(ch);
        else
            out += fmt::format("%{:02X}", ch);
    }
    return out;
}

// The resource name of the item named `identifier` inside its collection.
std::string resourceName(std::string_view identifier) {
    return percentEncode(detail::itemFileName(identifier));
}

std::string withSlash(std::string url) {
    if (!url.ends_with('/'))
        url += '/';
    return url;
}

// ---- XML ---------------------------------------------------------------------------

bool is(const xmlNode* node, const char* ns, const char* name) {
    return node && node->type == XML_ELEMENT_NODE && node->ns &&
           std::strcmp(reinterpret_cast<const char*>(node->ns->href), ns) == 0 &&
           std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

const xmlNode* child(const xmlNode* node, const char* ns, const char* name) {
    for (const xmlNode* each = node ? node->children : nullptr; each; each = each->next)
        if (is(each, ns, name))
            return each;
    return nullptr;
}

std::string text(const xmlNode* node) {
    if (!node)
        return {};
    xmlChar* content = xmlNodeGetContent(node);
    std::string out = content ? reinterpret_cast<const char*>(content) : "";
    xmlFree(content);
    return out;
}

struct XmlDoc {
    explicit XmlDoc(const std::string& body)
        : doc(xmlReadMemory(body.data(), static_cast<int>(body.size()), "response.xml", nullptr,
                            XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING)) {}
    ~XmlDoc() { xmlFreeDoc(doc); }
    XmlDoc(const XmlDoc&) = delete;
    XmlDoc& operator=(const XmlDoc&) = delete;
    xmlDoc* doc;
};

// Calls `visit` with the href and the successful <prop> of each response of
// a multistatus body; fails when the body is not one.
Result<> eachResponse(const std::string& body,
                      const std::function<void(const std::string&, const xmlNode*)>& visit) {
    XmlDoc xml(body);
    const xmlNode* root = xml.doc ? xmlDocGetRootElement(xml.doc) : nullptr;
    if (!is(root, kDav, "multistatus"))
        return fail(Errc::parseError, "the server's answer is not a WebDAV multistatus");
    for (const xmlNode* response = root->children; response; response = response->next) {
        if (!is(response, kDav, "response"))
            continue;
        const auto href = text(child(response, kDav, "href"));
        for (const xmlNode* propstat = response->children; propstat; propstat = propstat->next)
            if (is(propstat, kDav, "propstat") &&
                text(child(propstat, kDav, "status")).find(" 200") != std::string::npos)
                visit(href, child(propstat, kDav, "prop"));
    }
    return {};
}

// What a calendar collection says of itself: what discovery lists, and
// what a lookup of one calendar, which also reads its change token, asks.
constexpr const char* kCalendarProperties =
    R"(<d:propfind xmlns:d="DAV:" xmlns:c="urn:ietf:params:xml:ns:caldav" xmlns:a="http://apple.com/ns/ical/" xmlns:s="http://calendarserver.org/ns/"><d:prop><d:resourcetype/><d:displayname/><c:supported-calendar-component-set/><a:calendar-color/><s:getctag/><d:sync-token/></d:prop></d:propfind>)";

// The calendar at `url` of `source` as `prop` describes it, or nullopt when
// it is another kind of collection.
std::optional<CalendarInfo> calendarFrom(const std::string& url, const xmlNode* prop,
                                         const std::string& source) {
    if (!child(child(prop, kDav, "resourcetype"), kCaldav, "calendar"))
        return std::nullopt;
    bool todo = false, event = false;
    const xmlNode* set = child(prop, kCaldav, "supported-calendar-component-set");
    for (const xmlNode* comp = set ? set->children : nullptr; comp; comp = comp->next)
        if (is(comp, kCaldav, "comp")) {
            xmlChar* name = xmlGetProp(comp, reinterpret_cast<const xmlChar*>("name"));
            const std::string value = name ? reinterpret_cast<const char*>(name) : "";
            xmlFree(name);
            todo = todo || value == "VTODO";
            event = event || value == "VEVENT";
        }
    auto identifier = withSlash(url);
    auto title = text(child(prop, kDav, "displayname"));
    if (title.empty())
        title = identifier;
    auto color = text(child(prop, kApple, "calendar-color"));
    if (color.size() > 7 && color.front() == '#')
        color.resize(7); // #RRGGBBAA
    return CalendarInfo{std::move(identifier), std::move(title), std::move(color),
                        event && !todo ? CalendarEntityType::event : CalendarEntityType::reminder,
                        source};
}

} // namespace

// ---- HTTP --------------------------------------------------------------------------

struct CaldavCalendarStore::Connection {
    explicit Connection(Options given) : options(std::move(given)), curl(curl_easy_init()) {}
    ~Connection() { curl_easy_cleanup(curl); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* out) {
        static_cast<std::string*>(out)->append(data, size * count);
        return size * count;
    }
    static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* out) {
        const std::string_view line(data, size * count);
        if (line.size() > 5 && strncasecmp(line.data(), "etag:", 5) == 0) {
            auto value = line.substr(5);
            while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
                value.remove_prefix(1);
            while (!value.empty() && (value.back() == '\r' || value.back() == '\n'))
                value.remove_suffix(1);
            static_cast<Response*>(out)->etag = value;
        }
        return size * count;
    }

    // One request; fails only when the server cannot be reached or answers
    // 401/403 (the status of any other answer is the caller's to judge).
    Result<Response> request(const std::string& method, const std::string& url,
                             const std::string& body, std::vector<std::string> headers) {
        ++requests;
        Response response;
        curl_easy_reset(curl);
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
        if (const auto* login = loginFor(url)) {
            curl_easy_setopt(curl, CURLOPT_USERNAME, login->user.c_str());
            curl_easy_setopt(curl, CURLOPT_PASSWORD, login->password.c_str());
        } else {
            curl_easy_setopt(curl, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_OPTIONAL));
            if (!options.netrcFile.empty())
                curl_easy_setopt(curl, CURLOPT_NETRC_FILE, options.netrcFile.c_str());
        }
        curl_easy_setopt(curl, CURLOPT_TIMEOUT, options.timeoutSeconds);
        // A server that takes this long to accept a connection is taken
        // for unreachable: a program that writes after each save (tasket
        // done, offline) then does not keep its user waiting.
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT,
                         std::min(options.timeoutSeconds, kConnectSeconds));
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Connection::onBody);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
        curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Connection::onHeader);
        curl_easy_setopt(curl, CURLOPT_HEADERDATA, &response);
        if (!body.empty() || method == "PUT") {
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
            curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        }
        curl_slist* list = nullptr;
        headers.emplace_back("Expect:");
        for (const auto& header : headers)
            list = curl_slist_append(list, header.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
        char error[CURL_ERROR_SIZE] = {};
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
        const CURLcode code = curl_easy_perform(curl);
        curl_slist_free_all(list);
        if (code != CURLE_OK)
            return fail(Errc::unavailable,
                        fmt::format("cannot reach the calendar server at {}: {}", url,
                                    error[0] ? error : curl_easy_strerror(code)));
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
        if (response.status == 401 || response.status == 403)
            return fail(Errc::permissionDenied,
                        fmt::format("the calendar server at {} refused the credentials ({}); check "
                                    "its login in the keyring or the netrc file",
                                    url, response.status));
        return response;
    }

    // A WebDAV request whose answer is a multistatus.
    Result<Response> dav(const std::string& method, const std::string& url, int depth,
                         const std::string& body) {
        auto response = request(
            method, url, body,
            {"Depth: " + std::to_string(depth), "Content-Type: application/xml; charset=utf-8"});
        if (response && response->status != 207)
            return fail(response->status == 404 ? Errc::notFound : Errc::ioError,
                        fmt::format("{} {} failed: HTTP {}", method, url, response->status));
        return response;
    }

    // `href` resolved against `base`.
    static std::string resolve(const std::string& base, const std::string& href) {
        CURLU* url = curl_url();
        std::string out = href;
        if (curl_url_set(url, CURLUPART_URL, base.c_str(), 0) == CURLUE_OK &&
            curl_url_set(url, CURLUPART_URL, href.c_str(), 0) == CURLUE_OK) {
            char* full = nullptr;
            if (curl_url_get(url, CURLUPART_URL, &full, 0) == CURLUE_OK)
                out = full;
            curl_free(full);
        }
        curl_url_cleanup(url);
        return out;
    }

    // The Secret Service's login for the server of `url`, asked once a server.
    const detail::NetworkLogin* loginFor(const std::string& url) {
        if (!options.secretService)
            return nullptr;
        auto origin = detail::originOf(url);
        auto known = logins.find(origin);
        if (known == logins.end())
            known = logins.emplace(std::move(origin), detail::secretServiceLogin(url)).first;
        return known->second ? &*known->second : nullptr;
    }

    Options options;
    CURL* curl;
    std::size_t requests = 0;
    std::map<std::string, std::optional<detail::NetworkLogin>> logins; // by origin
};

namespace {

// An error for an answer that is not one of `expected`.
std::unexpected<Error> httpFailure(const std::string& what, const std::string& url, long status) {
    const Errc code = status == 412   ? Errc::conflict
                      : status == 404 ? Errc::notFound
                                      : Errc::ioError;
    return fail(code, status == 412
                          ? fmt::format("{} {}: another client changed it first", what, url)
                          : fmt::format("{} {} failed: HTTP {}", what, url, status));
}

// A change token of a collection that keeps sync-tokens: what it holds and
// its sync-token, then each resource this store wrote since with the entity
// tag the write got ("-": removed), separated by spaces:
//   r <sync-token> [<href> <etag>]...
// A CTag is never one: it holds no space.
struct SyncMark {
    CalendarEntityType kind = CalendarEntityType::reminder;
    std::string syncToken;
    std::map<std::string, std::optional<std::string>> written;
};

// Beyond this many writes, one request confirms them instead.
constexpr std::size_t kMostWritesInAToken = 16;

bool isMarkField(std::string_view text) {
    return !text.empty() &&
           std::ranges::none_of(text, [](unsigned char ch) { return ch <= ' ' || ch == 0x7f; });
}

std::optional<std::string> formatMark(const SyncMark& mark) {
    if (!isMarkField(mark.syncToken) || mark.written.size() > kMostWritesInAToken)
        return std::nullopt;
    std::string text = mark.kind == CalendarEntityType::event ? "e " : "r ";
    text += mark.syncToken;
    for (const auto& [href, etag] : mark.written) {
        if (!isMarkField(href) || (etag && (!isMarkField(*etag) || *etag == "-")))
            return std::nullopt;
        text += fmt::format(" {} {}", href, etag ? *etag : "-");
    }
    return text;
}

std::optional<SyncMark> parseMark(std::string_view text) {
    std::vector<std::string_view> fields;
    for (std::size_t at = 0; at <= text.size();) {
        const auto space = std::min(text.find(' ', at), text.size());
        fields.push_back(text.substr(at, space - at));
        at = space + 1;
    }
    if (fields.size() < 2 || fields.size() % 2 != 0 || (fields[0] != "r" && fields[0] != "e") ||
        !std::ranges::all_of(fields, isMarkField))
        return std::nullopt;
    SyncMark mark{fields[0] == "e" ? CalendarEntityType::event : CalendarEntityType::reminder,
                  std::string(fields[1]),
                  {}};
    for (std::size_t i = 2; i < fields.size(); i += 2)
        mark.written.emplace(fields[i], fields[i + 1] == "-"
                                            ? std::nullopt
                                            : std::optional<std::string>(fields[i + 1]));
    return mark;
}

// The changes of the collection `calendar` since `token` (RFC 6578
// sync-collection asking for `properties`): calls `visit` with each changed
// member's URL and its <prop>, null when it was removed (or none of it could
// be read), and stops when visit returns false. The token now, or nullopt
// when stopped or when the server cannot tell.
std::optional<std::string>
syncCollection(CaldavCalendarStore::Connection& http, const std::string& calendar,
               std::string_view token, std::string_view properties,
               const std::function<bool(const std::string&, const xmlNode*)>& visit) {
    const auto answer = http.dav(
        "REPORT", calendar, 0,
        fmt::format(
            R"(<d:sync-collection xmlns:d="DAV:" xmlns:c="urn:ietf:params:xml:ns:caldav"><d:sync-token>{}</d:sync-token><d:sync-level>1</d:sync-level><d:prop>{}</d:prop></d:sync-collection>)",
            xmlEscape(token), properties));
    if (!answer)
        return std::nullopt; // among others 403 or 409: a token the server forgot
    XmlDoc xml(answer->body);
    const xmlNode* root = xml.doc ? xmlDocGetRootElement(xml.doc) : nullptr;
    if (!is(root, kDav, "multistatus"))
        return std::nullopt;
    std::string now;
    for (const xmlNode* node = root->children; node; node = node->next) {
        if (is(node, kDav, "sync-token")) {
            now = text(node);
            continue;
        }
        if (!is(node, kDav, "response"))
            continue;
        const xmlNode* prop = nullptr;
        for (const xmlNode* propstat = node->children; propstat && !prop; propstat = propstat->next)
            if (is(propstat, kDav, "propstat") &&
                text(child(propstat, kDav, "status")).find(" 200") != std::string::npos)
                prop = child(propstat, kDav, "prop");
        if (!visit(
                CaldavCalendarStore::Connection::resolve(calendar, text(child(node, kDav, "href"))),
                prop))
            return std::nullopt;
    }
    if (now.empty())
        return std::nullopt;
    return now;
}

} // namespace

CaldavCalendarStore::CaldavCalendarStore(std::vector<std::string> urls, Options options)
    : m_urls(std::move(urls)), m_connection(std::make_unique<Connection>(options)) {}

CaldavCalendarStore::~CaldavCalendarStore() = default;

bool CaldavCalendarStore::isUrl(std::string_view source) {
    return source.starts_with("http://") || source.starts_with("https://");
}

std::size_t CaldavCalendarStore::requestCount() const {
    Lock lock(m_mutex);
    return m_connection->requests;
}

std::vector<CalendarSource> CaldavCalendarStore::sources() const {
    std::vector<CalendarSource> sources;
    for (const auto& url : m_urls)
        sources.push_back({url, url});
    return sources;
}

Result<std::vector<CalendarInfo>> CaldavCalendarStore::discover() const {
    Lock lock(m_mutex);
    auto& http = *m_connection;
    std::vector<CalendarInfo> found;
    for (const auto& source : m_urls) {
        auto home = m_homes.find(source);
        if (home == m_homes.end()) {
            // The principal, then its calendar home; each defaults to the URL before.
            // `url`'s property `ns:name`, an href, resolved against `url`.
            const auto hrefAt = [&http](const std::string& url, const char* ns, const char* name,
                                        std::string_view body) -> Result<std::string> {
                auto answer = http.dav("PROPFIND", url, 0, std::string(body));
                if (!answer)
                    return std::unexpected(answer.error());
                std::string resolved = url;
                if (auto parsed = eachResponse(answer->body,
                                               [&](const std::string&, const xmlNode* prop) {
                                                   const auto href = text(
                                                       child(child(prop, ns, name), kDav, "href"));
                                                   if (!href.empty())
                                                       resolved = Connection::resolve(url, href);
                                               });
                    !parsed)
                    return std::unexpected(parsed.error());
                return resolved;
            };
            const auto principal = hrefAt(
                source, kDav, "current-user-principal",
                R"(<d:propfind xmlns:d="DAV:"><d:prop><d:current-user-principal/></d:prop></d:propfind>)");
            if (!principal)
                return std::unexpected(principal.error());
            const auto calendarHome = hrefAt(
                *principal, kCaldav, "calendar-home-set",
                R"(<d:propfind xmlns:d="DAV:" xmlns:c="urn:ietf:params:xml:ns:caldav"><d:prop><c:calendar-home-set/></d:prop></d:propfind>)");
            if (!calendarHome)
                return std::unexpected(calendarHome.error());
            home = m_homes.emplace(source, withSlash(*calendarHome)).first;
        }
        auto answer = http.dav("PROPFIND", home->second, 1, kCalendarProperties);
        if (!answer)
            return std::unexpected(answer.error());
        std::vector<CalendarInfo> ofSource;
        auto parsed = eachResponse(answer->body, [&](const std::string& href, const xmlNode* prop) {
            if (auto calendar = calendarFrom(Connection::resolve(home->second, href), prop, source))
                ofSource.push_back(std::move(*calendar));
        });
        if (!parsed)
            return std::unexpected(parsed.error());
        std::ranges::sort(ofSource, {}, &CalendarInfo::identifier);
        found.insert(found.end(), ofSource.begin(), ofSource.end());
    }
    m_listed = found;
    m_lookedUp.clear();
    return found;
}

std::vector<CalendarInfo> CaldavCalendarStore::calendars(CalendarEntityType type) const {
    Lock lock(m_mutex);
    return withPending(discover().value_or(std::vector<CalendarInfo>{}), type);
}

std::vector<CalendarInfo> CaldavCalendarStore::withPending(std::vector<CalendarInfo> listed,
                                                           CalendarEntityType type) const {
    std::vector<CalendarInfo> found;
    for (auto& each : listed)
        if (!m_pendingCalendars.contains(each.identifier) && each.entityType == type)
            found.push_back(std::move(each));
    for (const auto& [id, pending] : m_pendingCalendars)
        if (pending && pending->entityType == type)
            found.push_back(*pending);
    return found;
}

std::optional<CalendarInfo>
CaldavCalendarStore::calendarWithIdentifier(std::string_view identifier) const {
    Lock lock(m_mutex);
    if (const auto pending = m_pendingCalendars.find(identifier);
        pending != m_pendingCalendars.end())
        return pending->second;
    if (m_listed)
        for (const auto& each : *m_listed)
            if (each.identifier == identifier)
                return each;
    if (const auto single = m_lookedUp.find(identifier); single != m_lookedUp.end())
        return single->second;
    // A calendar of a source is asked for by itself: one request, not three.
    if (sourceOf(identifier))
        return lookUp(std::string(identifier)).calendar;
    for (const auto type : {CalendarEntityType::reminder, CalendarEntityType::event})
        for (auto& each : calendars(type))
            if (each.identifier == identifier)
                return std::move(each);
    return std::nullopt;
}

Result<> CaldavCalendarStore::saveCalendar(CalendarInfo& calendar, bool commit) {
    Lock lock(m_mutex);
    CalendarInfo saved = calendar;
    if (saved.sourceIdentifier.empty()) {
        const auto fallback = defaultCalendarForNewReminders();
        saved.sourceIdentifier = fallback         ? fallback->sourceIdentifier
                                 : m_urls.empty() ? std::string()
                                                  : m_urls.front();
    }
    if (std::ranges::find(m_urls, saved.sourceIdentifier) == m_urls.end())
        return fail(Errc::notFound,
                    "there is no calendar source \"" + saved.sourceIdentifier + "\"");
    if (saved.identifier.empty()) {
        if (auto known = discover(); !known)
            return std::unexpected(known.error());
        saved.identifier = m_homes.at(saved.sourceIdentifier) + Uuid::generate().toString() + "/";
        m_newCalendars.insert(saved.identifier);
    } else {
        const auto existing = calendarWithIdentifier(saved.identifier);
        if (!existing)
            return fail(Errc::notFound, "there is no calendar \"" + saved.identifier + "\"");
        if (existing->entityType != saved.entityType ||
            existing->sourceIdentifier != saved.sourceIdentifier)
            return fail(Errc::invalidArgument, "a calendar keeps its kind and its source");
    }
    m_pendingCalendars.insert_or_assign(saved.identifier, saved);
    calendar = std::move(saved);
    return commitIf(commit);
}

Result<> CaldavCalendarStore::removeCalendar(std::string_view identifier, bool commit) {
    Lock lock(m_mutex);
    if (!calendarWithIdentifier(identifier))
        return fail(Errc::notFound, "there is no calendar \"" + std::string(identifier) + "\"");
    std::erase_if(m_pendingItems, [identifier](const auto& entry) {
        return entry.second && entry.second->calendarIdentifier == identifier;
    });
    m_pendingCalendars.insert_or_assign(std::string(identifier), std::nullopt);
    return commitIf(commit);
}

Result<std::vector<CaldavCalendarStore::Remote>>
CaldavCalendarStore::query(const CalendarInfo& calendar) const {
    const std::string component =
        calendar.entityType == CalendarEntityType::event ? "VEVENT" : "VTODO";
    auto answer = m_connection->dav(
        "REPORT", calendar.identifier, 1,
        fmt::format(
            R"(<c:calendar-query xmlns:d="DAV:" xmlns:c="urn:ietf:params:xml:ns:caldav"><d:prop><d:getetag/><c:calendar-data/></d:prop><c:filter><c:comp-filter name="VCALENDAR"><c:comp-filter name="{}"/></c:comp-filter></c:filter></c:calendar-query>)",
            component));
    if (!answer)
        return std::unexpected(answer.error());
    std::vector<Remote> found;
    auto parsed = eachResponse(answer->body, [&](const std::string& href, const xmlNode* prop) {
        auto data = text(child(prop, kCaldav, "calendar-data"));
        auto item = detail::parseCalendarItem(data);
        if (!item)
            return; // not an item we can read; left alone
        item->calendarIdentifier = calendar.identifier;
        found.push_back({Connection::resolve(calendar.identifier, href),
                         text(child(prop, kDav, "getetag")), std::move(data), std::move(*item)});
    });
    if (!parsed)
        return std::unexpected(parsed.error());
    return found;
}

Result<std::vector<CalendarItem>>
CaldavCalendarStore::items(CalendarEntityType kind,
                           std::span<const std::string> calendarIdentifiers) const {
    Lock lock(m_mutex);
    std::vector<CalendarInfo> chosen;
    for (const auto& id : calendarIdentifiers) {
        auto found = calendarWithIdentifier(id);
        if (!found)
            return fail(Errc::notFound, "there is no calendar \"" + id + "\"");
        chosen.push_back(std::move(*found));
    }
    if (calendarIdentifiers.empty()) {
        auto known = discover();
        if (!known)
            return std::unexpected(known.error());
        chosen = withPending(std::move(*known), kind);
    }
    std::vector<CalendarItem> found;
    for (const auto& each : chosen) {
        if (each.entityType != kind || m_newCalendars.contains(each.identifier))
            continue; // a calendar not made yet holds only pending items
        auto listed = query(each);
        if (!listed)
            return std::unexpected(listed.error());
        for (auto& remote : *listed) {
            if (!m_pendingItems.contains(remote.item.identifier))
                found.push_back(remote.item);
            m_seen.insert_or_assign(remote.item.identifier, std::move(remote));
        }
    }
    for (const auto& [id, pending] : m_pendingItems)
        if (pending && pending->kind == kind &&
            std::ranges::any_of(chosen, [&](const CalendarInfo& c) {
                return c.identifier == pending->calendarIdentifier;
            }))
            found.push_back(*pending);
    return found;
}

Result<std::optional<CaldavCalendarStore::Remote>>
CaldavCalendarStore::remote(std::string_view identifier) const {
    if (identifier.empty())
        return std::nullopt;
    // The calendars as last listed, where the item usually still is; that
    // it is in none of them counts only once they are listed again.
    auto last = m_listed.value_or(std::vector<CalendarInfo>{});
    for (const auto& [id, calendar] : m_lookedUp)
        if (std::ranges::find(last, id, &CalendarInfo::identifier) == last.end())
            last.push_back(calendar);
    for (const auto& [id, kind] : m_synced) // what is looked for in them is known
        if (std::ranges::find(last, id, &CalendarInfo::identifier) == last.end())
            last.push_back({id, "", "", kind, ""});
    if (!last.empty())
        if (auto found = remoteIn(identifier, last, false); !found || *found)
            return found;
    auto known = discover();
    if (!known)
        return std::unexpected(known.error());
    return remoteIn(identifier, *known, true);
}

Result<std::optional<CaldavCalendarStore::Remote>>
CaldavCalendarStore::remoteIn(std::string_view identifier, const std::vector<CalendarInfo>& known,
                              bool everywhere) const {
    std::vector<CalendarInfo> all;
    for (const auto type : {CalendarEntityType::reminder, CalendarEntityType::event})
        for (auto& each : withPending(known, type))
            if (!m_newCalendars.contains(each.identifier))
                all.push_back(std::move(each));
    // Where it was last seen, where this store would put it, then everywhere.
    // Only an answer that it is not there counts as its absence.
    std::optional<Error> failure;
    std::vector<std::pair<std::string, std::string>> likely; // href, calendar
    const auto seen = m_seen.find(identifier);
    if (seen != m_seen.end())
        likely.emplace_back(seen->second.href, seen->second.item.calendarIdentifier);
    for (const auto& each : all)
        likely.emplace_back(each.identifier + resourceName(identifier), each.identifier);
    for (const auto& [href, calendar] : likely) {
        if (std::ranges::find(all, calendar, &CalendarInfo::identifier) == all.end())
            continue;
        auto answer = m_connection->request("GET", href, {}, {});
        if (answer && answer->status != 200 && answer->status != 404 && answer->status != 410)
            answer = httpFailure("reading the item at", href, answer->status);
        if (!answer) {
            failure = answer.error();
            continue;
        }
        auto item = answer->status == 200 ? detail::parseCalendarItem(answer->body)
                                          : fail(Errc::notFound, "");
        if (!item || item->identifier != identifier)
            continue;
        item->calendarIdentifier = calendar;
        if (seen != m_seen.end()) {
            // A change is made against the version last listed or written:
            // its tag, or, when the server gave none, its text; the item read
            // is the server's.
            if (seen->second.etag.empty() && seen->second.href == href)
                return Remote{href, "", seen->second.text, std::move(*item)};
            return Remote{href, seen->second.etag, std::move(answer->body), std::move(*item)};
        }
        Remote found{href, answer->etag, std::move(answer->body), std::move(*item)};
        m_seen.emplace(std::string(identifier), found);
        keepVersion(found);
        return found;
    }
    if (everywhere)
        for (const auto& each : all) {
            auto listed = query(each);
            if (!listed) {
                failure = listed.error();
                continue;
            }
            for (auto& candidate : *listed)
                if (candidate.item.identifier == identifier) {
                    m_seen.insert_or_assign(candidate.item.identifier, candidate);
                    return std::optional(std::move(candidate));
                }
        }
    if (failure)
        return std::unexpected(*failure);
    return std::nullopt;
}

Result<std::optional<CaldavCalendarStore::Remote>>
CaldavCalendarStore::versionToChange(std::string_view identifier, bool orKept) const {
    const auto seen = m_seen.find(identifier);
    if (seen != m_seen.end() && !seen->second.etag.empty())
        return seen->second;
    if (seen == m_seen.end() && orKept)
        if (auto kept = keptVersion(identifier)) {
            m_seen.insert_or_assign(std::string(identifier), *kept);
            return kept;
        }
    return remote(identifier);
}

void CaldavCalendarStore::keepStateIn(std::filesystem::path folder) {
    Lock lock(m_mutex);
    m_versionsFolder = std::move(folder);
}

std::filesystem::path CaldavCalendarStore::versionFile(std::string_view identifier) const {
    // Named by a hash: an identifier never becomes a path. The file names
    // the item it holds, so two that share a name only miss.
    return m_versionsFolder /
           fmt::format("{:016x}.version", std::hash<std::string_view>{}(identifier));
}

// A kept version: a header line, the item's identifier, its calendar, URL
// and entity tag, one line each, the length of its text, then the text.
constexpr std::string_view kVersionHeader = "tasket caldav item version 1";

void CaldavCalendarStore::keepVersion(const Remote& remote) const {
    if (m_versionsFolder.empty())
        return;
    const auto& id = remote.item.identifier;
    const auto oneLine = [](std::string_view text) {
        return !text.empty() && text.find_first_of(std::string_view("\r\n\0", 3)) == text.npos;
    };
    if (remote.etag.empty() || !oneLine(id) || !oneLine(remote.item.calendarIdentifier) ||
        !oneLine(remote.href) || !oneLine(remote.etag)) {
        forgetVersion(id);
        return;
    }
    std::error_code error;
    if (std::filesystem::create_directories(m_versionsFolder, error))
        std::filesystem::permissions(m_versionsFolder, std::filesystem::perms::owner_all, error);
    const auto text = fmt::format("{}\n{}\n{}\n{}\n{}\n{}\n{}", kVersionHeader, id,
                                  remote.item.calendarIdentifier, remote.href, remote.etag,
                                  remote.text.size(), remote.text);
    if (!replaceFile(versionFile(id), text, 0600, Durability::cache))
        forgetVersion(id); // a cache: without it the item is read first
}

void CaldavCalendarStore::forgetVersion(std::string_view identifier) const {
    std::error_code error;
    if (!m_versionsFolder.empty())
        std::filesystem::remove(versionFile(identifier), error);
}

std::optional<CaldavCalendarStore::Remote>
CaldavCalendarStore::keptVersion(std::string_view identifier) const {
    if (m_versionsFolder.empty())
        return std::nullopt;
    std::ifstream in(versionFile(identifier), std::ios::binary);
    std::string header, id, calendar, length;
    Remote kept;
    if (!std::getline(in, header) || header != kVersionHeader || !std::getline(in, id) ||
        id != identifier || !std::getline(in, calendar) || !std::getline(in, kept.href) ||
        !std::getline(in, kept.etag) || !std::getline(in, length))
        return std::nullopt;
    kept.text.assign(std::istreambuf_iterator<char>(in), {});
    // A file cut short by a crash is no version.
    if (kept.text.size() != std::strtoull(length.c_str(), nullptr, 10))
        return std::nullopt;
    auto item = detail::parseCalendarItem(kept.text);
    if (!item || item->identifier != identifier)
        return std::nullopt;
    item->calendarIdentifier = std::move(calendar);
    kept.item = std::move(*item);
    kept.kept = true;
    return kept;
}

// What calendars hold: a header line, then one line per calendar, "r" or
// "e", a space and its identifier.
constexpr std::string_view kKindsHeader = "tasket caldav calendars 1";
constexpr std::string_view kKindsFile = "calendars.kinds";

std::optional<CalendarEntityType> CaldavCalendarStore::keptKind(std::string_view calendar) const {
    if (m_versionsFolder.empty())
        return std::nullopt;
    if (!m_keptKinds) {
        m_keptKinds.emplace();
        std::ifstream in(m_versionsFolder / kKindsFile, std::ios::binary);
        std::string line;
        if (std::getline(in, line) && line == kKindsHeader)
            while (std::getline(in, line))
                if (line.size() > 2 && (line[0] == 'r' || line[0] == 'e') && line[1] == ' ')
                    m_keptKinds->insert_or_assign(line.substr(2), line[0] == 'r'
                                                                      ? CalendarEntityType::reminder
                                                                      : CalendarEntityType::event);
    }
    const auto found = m_keptKinds->find(calendar);
    return found == m_keptKinds->end() ? std::nullopt : std::optional(found->second);
}

void CaldavCalendarStore::keepKind(std::string_view calendar,
                                   std::optional<CalendarEntityType> kind) const {
    if (m_versionsFolder.empty() || keptKind(calendar) == kind ||
        calendar.find_first_of(std::string_view("\r\n\0", 3)) != calendar.npos)
        return;
    if (kind)
        m_keptKinds->insert_or_assign(std::string(calendar), *kind);
    else
        m_keptKinds->erase(m_keptKinds->find(calendar));
    std::string text = std::string(kKindsHeader) + "\n";
    for (const auto& [id, each] : *m_keptKinds)
        text += fmt::format("{} {}\n", each == CalendarEntityType::reminder ? 'r' : 'e', id);
    std::error_code error;
    if (std::filesystem::create_directories(m_versionsFolder, error))
        std::filesystem::permissions(m_versionsFolder, std::filesystem::perms::owner_all, error);
    if (!replaceFile(m_versionsFolder / kKindsFile, text, 0600, Durability::cache))
        std::filesystem::remove(m_versionsFolder / kKindsFile, error); // asked again
}

Result<bool> CaldavCalendarStore::canChange(std::string_view identifier) const {
    Lock lock(m_mutex);
    if (const auto pending = m_pendingItems.find(identifier); pending != m_pendingItems.end())
        return pending->second.has_value();
    const auto found = versionToChange(identifier);
    if (!found)
        return std::unexpected(found.error());
    return found->has_value();
}

Result<std::string> CaldavCalendarStore::currentTag(const Remote& stored) const {
    if (!stored.etag.empty())
        return stored.etag;
    const auto answer = m_connection->request("GET", stored.href, {}, {});
    if (!answer)
        return std::unexpected(answer.error());
    if (answer->status != 200)
        return httpFailure("reading the item at", stored.href, answer->status);
    const auto before = detail::parseCalendarItem(stored.text);
    const auto now = detail::parseCalendarItem(answer->body);
    if (!answer->etag.empty() && before && now && now->identifier == before->identifier &&
        now->hasSameContent(*before) && now->applicationData == before->applicationData)
        return answer->etag;
    return fail(Errc::conflict,
                fmt::format("{}: another client may have changed it, and the server gave no "
                            "entity tag to tell; read it again",
                            stored.href));
}

CaldavCalendarStore::LookedUp CaldavCalendarStore::lookUp(const std::string& url) const {
    LookedUp found;
    const auto answer = m_connection->dav("PROPFIND", url, 0, kCalendarProperties);
    if (!answer) {
        if (answer.error().code == Errc::notFound)
            keepKind(url, std::nullopt);
        return found;
    }
    const auto source = sourceOf(url);
    (void)eachResponse(answer->body, [&](const std::string&, const xmlNode* prop) {
        found.syncToken = text(child(prop, kDav, "sync-token"));
        found.token = found.syncToken.empty() ? text(child(prop, kCalendarServer, "getctag"))
                                              : found.syncToken;
        if (auto calendar = source ? calendarFrom(url, prop, *source) : std::nullopt;
            calendar && calendar->identifier == url)
            found.calendar = std::move(*calendar);
    });
    if (found.calendar) {
        m_lookedUp.insert_or_assign(url, *found.calendar);
        keepKind(url, found.calendar->entityType);
    }
    return found;
}

std::optional<std::string> CaldavCalendarStore::changeToken(std::string_view identifier) const {
    Lock lock(m_mutex);
    if (!m_pendingItems.empty() || m_newCalendars.contains(identifier))
        return std::nullopt;
    auto found = lookUp(std::string(identifier));
    if (!found.syncToken.empty() && !found.calendar)
        found.calendar = calendarWithIdentifier(identifier); // under several sources
    const auto kind = found.calendar ? std::optional(found.calendar->entityType) : std::nullopt;
    m_tokens.insert_or_assign(std::string(identifier), TokenRead{found.syncToken, kind, {}});
    if (kind)
        if (auto mark = formatMark({*kind, found.syncToken, {}}))
            return mark;
    if (found.token.empty())
        return std::nullopt;
    return std::move(found.token);
}

std::optional<std::string>
CaldavCalendarStore::tokenAfterOwnWrites(std::string_view identifier) const {
    Lock lock(m_mutex);
    const auto read = m_tokens.find(identifier);
    if (!m_pendingItems.empty() || read == m_tokens.end() || read->second.syncToken.empty() ||
        !read->second.kind)
        return std::nullopt;
    SyncMark mark{*read->second.kind, read->second.syncToken, read->second.written};
    if (std::ranges::none_of(mark.written, [](const auto& w) { return w.second == ""; }))
        if (auto text = formatMark(mark))
            return text;
    // Another client's change makes no token: the next pass reads it.
    auto now = syncCollection(
        *m_connection, std::string(identifier), mark.syncToken, "<d:getetag/>",
        [&](const std::string& href, const xmlNode*) { return mark.written.contains(href); });
    if (!now)
        return std::nullopt;
    return formatMark({mark.kind, std::move(*now), {}});
}

std::optional<std::string> CaldavCalendarStore::sourceOf(std::string_view url) const {
    std::optional<std::string> found;
    for (const auto& source : m_urls)
        if (url.starts_with(withSlash(source))) {
            if (found)
                return std::nullopt; // which of them, only discovery tells
            found = source;
        }
    return found;
}

void CaldavCalendarStore::forgetCalendars() {
    m_listed.reset();
    m_lookedUp.clear();
    m_synced.clear();
}

std::optional<CalendarChanges> CaldavCalendarStore::changesSince(std::string_view identifier,
                                                                 std::string_view token) const {
    Lock lock(m_mutex);
    const auto mark = parseMark(token);
    if (!mark || !m_pendingItems.empty() || m_newCalendars.contains(identifier) ||
        m_pendingCalendars.contains(identifier))
        return std::nullopt;
    const std::string calendar(identifier);
    CalendarChanges changes;
    const auto own = [&](const std::string& href, const xmlNode* prop) {
        const auto written = mark->written.find(href);
        if (written == mark->written.end())
            return false;
        return prop ? written->second == text(child(prop, kDav, "getetag")) : !written->second;
    };
    auto now = syncCollection(
        *m_connection, calendar, mark->syncToken, "<d:getetag/><c:calendar-data/>",
        [&](const std::string& href, const xmlNode* prop) {
            if (own(href, prop))
                return true;
            if (!prop) {
                ++changes.removed; // or nothing of it could be read
                return true;
            }
            auto data = text(child(prop, kCaldav, "calendar-data"));
            auto item = detail::parseCalendarItem(data);
            if (!item)
                return true; // not an item we can read; left alone, as query() does
            item->calendarIdentifier = calendar;
            changes.changed.push_back(*item);
            const auto& seen = m_seen.insert_or_assign(
                changes.changed.back().identifier, Remote{href, text(child(prop, kDav, "getetag")),
                                                          std::move(data), std::move(*item)});
            keepVersion(seen.first->second);
            return true;
        });
    if (!now) {
        keepKind(calendar, std::nullopt); // gone, or to be looked up again
        return std::nullopt;
    }
    // The token was ours for this collection: it is still there, and holds
    // what it held then.
    m_synced.insert_or_assign(calendar, mark->kind);
    keepKind(calendar, mark->kind);
    m_tokens.insert_or_assign(calendar, TokenRead{std::move(*now), mark->kind, {}});
    return changes;
}

void CaldavCalendarStore::noteWrite(const std::string& calendar, const std::string& href,
                                    std::optional<std::string> etag) {
    if (const auto read = m_tokens.find(calendar); read != m_tokens.end())
        read->second.written.insert_or_assign(href, std::move(etag));
}

std::optional<CalendarEntityType>
CaldavCalendarStore::calendarKind(std::string_view identifier) const {
    Lock lock(m_mutex);
    if (!m_pendingCalendars.contains(identifier)) {
        if (const auto synced = m_synced.find(identifier); synced != m_synced.end())
            return synced->second;
        if (const auto kept = keptKind(identifier))
            return kept;
    }
    const auto kind = CalendarStore::calendarKind(identifier);
    if (!m_pendingCalendars.contains(identifier))
        keepKind(identifier, kind);
    return kind;
}

Result<std::optional<CalendarItem>>
CaldavCalendarStore::pendingOr(std::string_view identifier,
                               const std::function<Result<std::optional<Remote>>()>& stored) const {
    Lock lock(m_mutex);
    if (const auto pending = m_pendingItems.find(identifier); pending != m_pendingItems.end())
        return pending->second;
    auto found = stored();
    if (!found)
        return std::unexpected(found.error());
    if (!*found)
        return std::nullopt;
    return std::move((*found)->item);
}

Result<std::optional<CalendarItem>>
CaldavCalendarStore::itemToChange(std::string_view identifier) const {
    return pendingOr(identifier, [&] { return versionToChange(identifier); });
}

Result<std::optional<CalendarItem>>
CaldavCalendarStore::findItem(std::string_view identifier) const {
    return pendingOr(identifier, [&] { return remote(identifier); });
}

std::optional<CalendarItem>
CaldavCalendarStore::itemWithIdentifier(std::string_view identifier) const {
    auto found = findItem(identifier);
    return found ? std::move(*found) : std::nullopt;
}

Result<> CaldavCalendarStore::commitLocked() {
    auto& http = *m_connection;
    // Calendars first (items may go into new ones), then items, then the
    // removal of calendars. Each change leaves the pending set once stored.
    for (auto it = m_pendingCalendars.begin(); it != m_pendingCalendars.end();) {
        if (!it->second) {
            ++it;
            continue;
        }
        const auto& info = *it->second;
        const bool isNew = m_newCalendars.contains(info.identifier);
        std::string props = "<d:displayname>" + xmlEscape(info.title) + "</d:displayname>";
        if (!info.color.empty())
            props += "<a:calendar-color>" + xmlEscape(info.color) + "</a:calendar-color>";
        const char* namespaces =
            R"(xmlns:d="DAV:" xmlns:c="urn:ietf:params:xml:ns:caldav" xmlns:a="http://apple.com/ns/ical/")";
        const auto answer =
            isNew
                ? http.request(
                      "MKCALENDAR", info.identifier,
                      fmt::format(
                          R"(<?xml version="1.0" encoding="utf-8"?><c:mkcalendar {}><d:set><d:prop>{}<c:supported-calendar-component-set><c:comp name="{}"/></c:supported-calendar-component-set></d:prop></d:set></c:mkcalendar>)",
                          namespaces, props,
                          info.entityType == CalendarEntityType::event ? "VEVENT" : "VTODO"),
                      {"Content-Type: application/xml; charset=utf-8"})
                : http.request(
                      "PROPPATCH", info.identifier,
                      fmt::format(
                          R"(<?xml version="1.0" encoding="utf-8"?><d:propertyupdate {}><d:set><d:prop>{}</d:prop></d:set></d:propertyupdate>)",
                          namespaces, props),
                      {"Content-Type: application/xml; charset=utf-8"});
        if (!answer)
            return std::unexpected(answer.error());
        if (answer->status != (isNew ? 201 : 207))
            return httpFailure(isNew ? "making the calendar" : "changing the calendar",
                               info.identifier, answer->status);
        m_newCalendars.erase(info.identifier);
        keepKind(info.identifier, info.entityType);
        forgetCalendars();
        it = m_pendingCalendars.erase(it);
    }
    // Items whose kept version the server refused: read again.
    std::set<std::string, std::less<>> refused;
    // A version an earlier program kept may be out of date in what this
    // store does not read (an alarm another client added): once refused,
    // the change is made against the server's, as without a kept version.
    const auto outOfDate = [&](const std::optional<Remote>& stored, long status) {
        if (status != 412 || !stored || !stored->kept || refused.contains(stored->item.identifier))
            return false;
        refused.insert(stored->item.identifier);
        m_seen.erase(stored->item.identifier);
        forgetVersion(stored->item.identifier);
        return true;
    };
    while (!m_pendingItems.empty()) {
        const auto it = m_pendingItems.begin();
        std::optional<Remote> stored;
        if (!m_newItems.contains(it->first)) {
            auto found = versionToChange(it->first, !refused.contains(it->first));
            if (!found)
                return std::unexpected(found.error());
            stored = std::move(*found);
        }
        // Never unconditional: a version to change, or none to create over.
        std::string tag;
        if (stored) {
            auto current = currentTag(*stored);
            if (!current)
                return std::unexpected(current.error());
            tag = std::move(*current);
        }
        if (it->second) {
            const auto& item = *it->second;
            if (!calendarKind(item.calendarIdentifier))
                return fail(Errc::notFound,
                            "there is no calendar \"" + item.calendarIdentifier + "\"");
            const bool inPlace =
                stored && stored->item.calendarIdentifier == item.calendarIdentifier;
            const auto href =
                inPlace ? stored->href : item.calendarIdentifier + resourceName(item.identifier);
            auto text = detail::formatCalendarItem(item, stored ? stored->text : std::string(),
                                                   item.lastModified.value_or(now()));
            if (!text)
                return std::unexpected(text.error());
            const auto answer =
                http.request("PUT", href, *text,
                             {"Content-Type: text/calendar; charset=utf-8",
                              inPlace ? "If-Match: " + tag : std::string("If-None-Match: *")});
            if (!answer)
                return std::unexpected(answer.error());
            if (outOfDate(stored, answer->status))
                continue;
            if (answer->status == 404 || answer->status == 409) // its calendar may be gone
                keepKind(item.calendarIdentifier, std::nullopt);
            if (answer->status != 201 && answer->status != 204 && answer->status != 200)
                return httpFailure("saving the item at", href, answer->status);
            noteWrite(item.calendarIdentifier, href, answer->etag);
            if (stored && !inPlace) {
                const auto removed = http.request("DELETE", stored->href, {}, {"If-Match: " + tag});
                if (!removed)
                    return std::unexpected(removed.error());
                if (removed->status >= 300 && removed->status != 404)
                    return httpFailure("moving the item from", stored->href, removed->status);
                noteWrite(stored->item.calendarIdentifier, stored->href, std::nullopt);
            }
            // Without a tag (the server may have changed what it stored), the
            // next change is made against this text.
            const auto& written = m_seen.insert_or_assign(
                item.identifier, Remote{href, answer->etag, std::move(*text), item});
            keepVersion(written.first->second);
        } else if (stored) {
            const auto answer = http.request("DELETE", stored->href, {}, {"If-Match: " + tag});
            if (!answer)
                return std::unexpected(answer.error());
            if (outOfDate(stored, answer->status))
                continue;
            if (answer->status >= 300 && answer->status != 404)
                return httpFailure("removing the item at", stored->href, answer->status);
            noteWrite(stored->item.calendarIdentifier, stored->href, std::nullopt);
            m_seen.erase(it->first);
            forgetVersion(it->first);
        }
        m_newItems.erase(it->first);
        m_pendingItems.erase(it);
    }
    for (auto it = m_pendingCalendars.begin(); it != m_pendingCalendars.end();) {
        const auto answer = http.request("DELETE", it->first, {}, {});
        if (!answer)
            return std::unexpected(answer.error());
        if (answer->status >= 300 && answer->status != 404)
            return httpFailure("removing the calendar", it->first, answer->status);
        std::erase_if(m_seen, [&](const auto& entry) {
            return entry.second.item.calendarIdentifier == it->first;
        });
        keepKind(it->first, std::nullopt);
        forgetCalendars();
        it = m_pendingCalendars.erase(it);
    }
    return {};
}

void CaldavCalendarStore::resetLocked() {
    m_newCalendars.clear();
}

} // namespace tasket::platform
