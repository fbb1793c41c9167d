#include "platform/cloud/postgres_cloud_database.h"

#include "platform/base64.h"
#include "platform/cloud/cloud_schema.h"
#include "platform/json_writer.h"

#include <fmt/format.h>
#include <poll.h>
#include <simdjson.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <utility>

namespace tasket::platform {

CloudError cloudErrorFrom(const PostgresError& error) {
    return CloudError{error.code, error.message, std::nullopt, {}};
}

namespace {

using Clock = std::chrono::steady_clock;

std::string zoneText(const CloudZoneID& zone) {
    return fmt::format("{} of {}", zone.name, zone.owner);
}

// --- Field values as jsonb --------------------------------------------------
// Texts, truth values, whole numbers, nulls and name lists are plain JSON, so
// the server can read them; the kinds JSON cannot tell apart are tagged:
// {"double": 2.5}, {"date": 752000000.25}, {"data": "AP8H"}, {"reference": "T0"}.

void writeValue(JsonWriter& out, const CloudValue& value) {
    std::visit(
        [&](const auto& v) {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, std::monostate>)
                out.null();
            else if constexpr (std::is_same_v<V, bool>)
                out.boolean(v);
            else if constexpr (std::is_same_v<V, std::int64_t>)
                out.integer(v);
            else if constexpr (std::is_same_v<V, double>)
                out.beginObject().key("double").number(v).endObject();
            else if constexpr (std::is_same_v<V, std::string>)
                out.string(v);
            else if constexpr (std::is_same_v<V, Date>)
                out.beginObject().key("date").number(v.secondsSinceReference).endObject();
            else if constexpr (std::is_same_v<V, CloudData>)
                out.beginObject().key("data").data(v).endObject();
            else if constexpr (std::is_same_v<V, CloudReference>)
                out.beginObject().key("reference").string(v.recordName).endObject();
            else {
                out.beginArray();
                for (const auto& name : v)
                    out.string(name);
                out.endArray();
            }
        },
        value);
}

void writeFields(JsonWriter& out, const CloudFields& fields) {
    out.beginObject();
    for (const auto& [key, value] : fields) {
        out.key(key);
        writeValue(out, value);
    }
    out.endObject();
}

std::optional<CloudValue> readValue(simdjson::dom::element element) {
    using Type = simdjson::dom::element_type;
    switch (element.type()) {
    case Type::NULL_VALUE: return CloudValue{};
    case Type::BOOL: return CloudValue{bool(element.get_bool().value())};
    case Type::INT64: return CloudValue{std::int64_t(element.get_int64().value())};
    case Type::UINT64:
    case Type::DOUBLE: return CloudValue{double(element.get_double().value())};
    case Type::STRING: return CloudValue{std::string(element.get_string().value())};
    case Type::ARRAY: {
        CloudNameList names;
        const simdjson::dom::array list = element.get_array().value();
        for (auto item : list) {
            std::string_view name;
            if (item.get_string().get(name))
                return std::nullopt;
            names.emplace_back(name);
        }
        return CloudValue{std::move(names)};
    }
    case Type::OBJECT: {
        auto object = element.get_object().value();
        if (object.size() != 1)
            return std::nullopt;
        const auto [tag, inner] = *object.begin();
        if (tag == "double" && inner.is_number())
            return CloudValue{double(inner.get_double().value())};
        if (tag == "date" && inner.is_number())
            return CloudValue{Date{inner.get_double().value()}};
        if (tag == "data" && inner.is_string()) {
            auto bytes = decodeBase64(inner.get_string().value());
            return bytes ? std::optional(CloudValue{std::move(*bytes)}) : std::nullopt;
        }
        if (tag == "reference" && inner.is_string())
            return CloudValue{CloudReference{std::string(inner.get_string().value())}};
        return std::nullopt;
    }
    default: return std::nullopt;
    }
}

CloudResult<CloudFields> readFields(simdjson::dom::parser& parser, std::string_view json,
                                    std::string_view recordName) {
    const auto bad = [&](std::string_view why) {
        return cloudFail(
            CloudErrorCode::internalError,
            fmt::format("the record {} on the server is damaged: {}", recordName, why));
    };
    simdjson::dom::object object;
    if (parser.parse(simdjson::padded_string(json)).get(object))
        return bad("its fields are not a JSON object");
    CloudFields fields;
    for (const auto [key, element] : object) {
        auto value = readValue(element);
        if (!value)
            return bad(fmt::format("the field {} holds no known kind of value", key));
        fields.emplace(std::string(key), std::move(*value));
    }
    return fields;
}

std::string_view databaseName(bool shared) {
    return shared ? "shared" : "private";
}

std::string_view permissionText(CloudSharePermission permission) {
    return permission == CloudSharePermission::readOnly ? "readOnly" : "readWrite";
}

} // namespace

// --- Rate limit ---------------------------------------------------------------

// A token bucket holding up to one second's worth of requests.
struct PostgresCloudContainer::RateLimit {
    double perSecond;
    double tokens;
    Clock::time_point refilled = Clock::now();

    explicit RateLimit(double rate) : perSecond(rate), tokens(std::max(1.0, rate)) {}

    /// Takes a token; otherwise the seconds until one is there.
    std::optional<double> take() {
        const auto now = Clock::now();
        tokens =
            std::min(std::max(1.0, perSecond),
                     tokens + std::chrono::duration<double>(now - refilled).count() * perSecond);
        refilled = now;
        if (tokens >= 1.0) {
            tokens -= 1.0;
            return std::nullopt;
        }
        return (1.0 - tokens) / perSecond;
    }
};

// --- Databases --------------------------------------------------------------

class PostgresCloudContainer::Database final : public CloudDatabase {
  public:
    Database(PostgresCloudContainer& owner, bool shared) : m_owner(owner), m_shared(shared) {}

    CloudResult<std::vector<CloudZoneID>> fetchAllZones() override {
        if (auto ok = m_owner.begin(); !ok)
            return std::unexpected(ok.error());
        auto zones = visibleZones();
        if (!zones)
            return std::unexpected(zones.error());
        std::vector<CloudZoneID> out;
        for (const auto& [zone, permission] : *zones)
            out.push_back(zone);
        return out;
    }

    CloudResult<> modifyZones(const std::vector<CloudZoneID>& save,
                              const std::vector<CloudZoneID>& remove) override {
        if (auto ok = m_owner.begin(); !ok)
            return std::unexpected(ok.error());
        if (m_shared && !save.empty())
            return cloudFail(CloudErrorCode::permissionFailure,
                             "zones cannot be created in the shared database");
        for (const auto& zone : save) {
            if (zone.owner != m_owner.m_user || zone.name.empty())
                return cloudFail(
                    CloudErrorCode::permissionFailure,
                    fmt::format("{} cannot create the zone {}", m_owner.m_user, zoneText(zone)));
        }
        return m_owner.transaction([&]() -> CloudResult<> {
            for (const auto& zone : save) {
                if (auto done = m_owner.run("INSERT INTO cloud.zones (owner, name) VALUES ($1, $2) "
                                            "ON CONFLICT DO NOTHING",
                                            {zone.owner, zone.name});
                    !done)
                    return std::unexpected(done.error());
            }
            // The owner deletes its zone; a participant leaves the share.
            const char* removal = m_shared
                                      ? "DELETE FROM cloud.shares WHERE owner = $1 AND zone = $2 "
                                        "AND participant = current_user"
                                      : "DELETE FROM cloud.zones WHERE owner = $1 AND name = $2 "
                                        "AND owner = current_user";
            for (const auto& zone : remove) {
                if (auto done = m_owner.run(removal, {zone.owner, zone.name}); !done)
                    return std::unexpected(done.error());
            }
            return {};
        });
    }

    CloudResult<std::vector<CloudSubscription>> fetchAllSubscriptions() override {
        if (auto ok = m_owner.begin(); !ok)
            return std::unexpected(ok.error());
        auto rows =
            m_owner.run("SELECT id, silent FROM cloud.subscriptions "
                        "WHERE owner = current_user AND database = $1 ORDER BY id COLLATE \"C\"",
                        {std::string(databaseName(m_shared))});
        if (!rows)
            return std::unexpected(rows.error());
        std::vector<CloudSubscription> out;
        for (int row = 0; row < rows->count(); ++row)
            out.push_back({std::string(rows->text(row, 0)), rows->text(row, 1) == "t"});
        return out;
    }

    CloudResult<> modifySubscriptions(const std::vector<CloudSubscription>& save,
                                      const std::vector<std::string>& removeIDs) override {
        if (auto ok = m_owner.begin(); !ok)
            return std::unexpected(ok.error());
        for (const auto& subscription : save) {
            if (subscription.id.empty())
                return cloudFail(CloudErrorCode::invalidArguments, "a subscription needs an id");
        }
        const std::string database(databaseName(m_shared));
        return m_owner.transaction([&]() -> CloudResult<> {
            for (const auto& subscription : save) {
                if (auto done = m_owner.run(
                        "INSERT INTO cloud.subscriptions (database, id, silent) VALUES ($1, $2, "
                        "$3) "
                        "ON CONFLICT (owner, database, id) DO UPDATE SET silent = excluded.silent",
                        {database, subscription.id, subscription.silent ? "true" : "false"});
                    !done)
                    return std::unexpected(done.error());
            }
            for (const auto& id : removeIDs) {
                if (auto done =
                        m_owner.run("DELETE FROM cloud.subscriptions "
                                    "WHERE owner = current_user AND database = $1 AND id = $2",
                                    {database, id});
                    !done)
                    return std::unexpected(done.error());
            }
            return {};
        });
    }

    CloudResult<std::vector<CloudRecord>> queryRecords(const CloudQuery& query) override {
        if (auto ok = m_owner.begin(); !ok)
            return std::unexpected(ok.error());
        auto zones = visibleZones();
        if (!zones)
            return std::unexpected(zones.error());
        if (!zones->contains(query.zone))
            return cloudFail(CloudErrorCode::zoneNotFound,
                             fmt::format("no zone {}", zoneText(query.zone)));
        std::string sql =
            "SELECT name, fields::text, parent, change_tag, "
            "extract(epoch FROM modified_at) FROM cloud.records "
            "WHERE owner = $1 AND zone = $2 AND type = $3 ORDER BY name COLLATE \"C\"";
        if (query.limit != 0)
            sql += fmt::format(" LIMIT {}", query.limit);
        auto rows = m_owner.run(sql, {query.zone.owner, query.zone.name, query.recordType});
        if (!rows)
            return std::unexpected(rows.error());
        simdjson::dom::parser parser;
        std::vector<CloudRecord> out;
        out.reserve(static_cast<std::size_t>(rows->count()));
        for (int row = 0; row < rows->count(); ++row) {
            CloudRecord record{query.recordType,
                               {std::string(rows->text(row, 0)), query.zone},
                               std::string(rows->text(row, 3)),
                               {},
                               std::nullopt,
                               Date::fromUnix(std::stod(std::string(rows->text(row, 4))))};
            auto fields = readFields(parser, rows->text(row, 1), record.id.name);
            if (!fields)
                return std::unexpected(fields.error());
            record.fields = std::move(*fields);
            if (!rows->isNull(row, 2))
                record.parent = CloudReference{std::string(rows->text(row, 2))};
            out.push_back(std::move(record));
        }
        return out;
    }

    CloudResult<CloudModifyRecordsResult>
    modifyRecords(const std::vector<CloudRecord>& save,
                  const std::vector<CloudRecordID>& remove) override {
        if (auto ok = m_owner.begin(); !ok)
            return std::unexpected(ok.error());
        return m_owner.transaction([&]() -> CloudResult<CloudModifyRecordsResult> {
            if (auto writable = checkWritable(save, remove); !writable)
                return std::unexpected(writable.error());
            CloudModifyRecordsResult result;
            if (auto saved = saveRecords(save); saved)
                result.saved = std::move(*saved);
            else
                return std::unexpected(saved.error());
            if (!remove.empty()) {
                JsonWriter ids(JsonWriter::Form::record);
                ids.beginArray();
                for (const auto& id : remove)
                    ids.beginObject()
                        .key("owner")
                        .string(id.zone.owner)
                        .key("zone")
                        .string(id.zone.name)
                        .key("name")
                        .string(id.name)
                        .endObject();
                ids.endArray();
                auto json = ids.finish();
                if (!json)
                    return cloudFail(CloudErrorCode::invalidArguments, json.error().message);
                auto done =
                    m_owner.run("DELETE FROM cloud.records r USING jsonb_to_recordset($1::jsonb) "
                                "AS u(owner name, zone text, name text) "
                                "WHERE r.owner = u.owner AND r.zone = u.zone AND r.name = u.name",
                                {*json});
                if (!done)
                    return std::unexpected(done.error());
                result.deleted = remove;
            }
            return result;
        });
    }

  private:
    /// The zones of this database with the account's permission in each.
    CloudResult<std::map<CloudZoneID, CloudSharePermission>> visibleZones() {
        auto rows = m_owner.run(
            m_shared
                ? "SELECT z.owner, z.name, s.permission FROM cloud.zones z "
                  "JOIN cloud.shares s ON s.owner = z.owner AND s.zone = z.name "
                  "WHERE s.participant = current_user AND z.owner <> current_user"
                : "SELECT owner, name, 'readWrite' FROM cloud.zones WHERE owner = current_user");
        if (!rows)
            return std::unexpected(rows.error());
        std::map<CloudZoneID, CloudSharePermission> zones;
        for (int row = 0; row < rows->count(); ++row)
            zones.emplace(
                CloudZoneID{std::string(rows->text(row, 1)), std::string(rows->text(row, 0))},
                rows->text(row, 2) == "readOnly" ? CloudSharePermission::readOnly
                                                 : CloudSharePermission::readWrite);
        return zones;
    }

    CloudResult<> checkWritable(const std::vector<CloudRecord>& save,
                                const std::vector<CloudRecordID>& remove) {
        std::set<CloudZoneID> touched;
        for (const auto& record : save)
            touched.insert(record.id.zone);
        for (const auto& id : remove)
            touched.insert(id.zone);
        if (touched.empty())
            return {};
        auto zones = visibleZones();
        if (!zones)
            return std::unexpected(zones.error());
        for (const auto& zone : touched) {
            const auto it = zones->find(zone);
            if (it == zones->end())
                return cloudFail(CloudErrorCode::zoneNotFound,
                                 fmt::format("no zone {}", zoneText(zone)));
            if (it->second != CloudSharePermission::readWrite)
                return cloudFail(
                    CloudErrorCode::permissionFailure,
                    fmt::format("{} may only read the zone {}", m_owner.m_user, zoneText(zone)));
        }
        return {};
    }

    /// Creates the untagged records and updates the tagged ones whose tag is
    /// still the server's, two statements for the whole batch; any record
    /// left over fails the batch.
    CloudResult<std::vector<CloudRecord>> saveRecords(const std::vector<CloudRecord>& save) {
        using Key = std::tuple<std::string, std::string, std::string>;
        std::map<Key, std::pair<std::string, Date>> stored;
        for (const bool creating : {true, false}) {
            JsonWriter batch(JsonWriter::Form::record);
            batch.beginArray();
            bool any = false;
            for (const auto& record : save) {
                if (record.changeTag.empty() != creating)
                    continue;
                any = true;
                batch.beginObject()
                    .key("owner")
                    .string(record.id.zone.owner)
                    .key("zone")
                    .string(record.id.zone.name)
                    .key("name")
                    .string(record.id.name)
                    .key("type")
                    .string(record.recordType)
                    .key("fields");
                writeFields(batch, record.fields);
                batch.key("parent");
                if (record.parent)
                    batch.string(record.parent->recordName);
                else
                    batch.null();
                batch.key("tag").string(record.changeTag).endObject();
            }
            batch.endArray();
            if (!any)
                continue;
            auto json = batch.finish();
            if (!json)
                return cloudFail(CloudErrorCode::invalidArguments, json.error().message);
            static constexpr const char* kColumns =
                "jsonb_to_recordset($1::jsonb) AS u(owner name, zone text, name text, type text, "
                "fields jsonb, parent text, tag text)";
            const std::string sql =
                creating
                    ? fmt::format(
                          "INSERT INTO cloud.records (owner, zone, name, type, fields, parent) "
                          "SELECT owner, zone, name, type, fields, parent FROM {} "
                          "ON CONFLICT (owner, zone, name) DO NOTHING "
                          "RETURNING owner, zone, name, change_tag, "
                          "extract(epoch FROM modified_at)",
                          kColumns)
                    : fmt::format("UPDATE cloud.records r SET type = u.type, fields = u.fields, "
                                  "parent = u.parent, change_tag = nextval('cloud.change_tags'), "
                                  "modified_by = current_user, modified_at = now() FROM {} "
                                  "WHERE r.owner = u.owner AND r.zone = u.zone AND r.name = u.name "
                                  "AND r.change_tag::text = u.tag "
                                  "RETURNING r.owner, r.zone, r.name, r.change_tag, "
                                  "extract(epoch FROM r.modified_at)",
                                  kColumns);
            auto rows = m_owner.run(sql, {*json});
            if (!rows)
                return std::unexpected(rows.error());
            for (int row = 0; row < rows->count(); ++row)
                stored[{std::string(rows->text(row, 0)), std::string(rows->text(row, 1)),
                        std::string(rows->text(row, 2))}] = {
                    std::string(rows->text(row, 3)),
                    Date::fromUnix(std::stod(std::string(rows->text(row, 4))))};
        }
        std::vector<CloudRecord> out;
        out.reserve(save.size());
        std::set<Key> seen;
        for (const auto& record : save) {
            const Key key{record.id.zone.owner, record.id.zone.name, record.id.name};
            const auto it = stored.find(key);
            if (it == stored.end() || !seen.insert(key).second)
                return std::unexpected(lostSave(record));
            CloudRecord saved = record;
            saved.changeTag = it->second.first;
            saved.modified = it->second.second;
            out.push_back(std::move(saved));
        }
        return out;
    }

    /// Why a record was not saved: it is gone, or its tag is not the server's.
    CloudError lostSave(const CloudRecord& record) {
        auto rows =
            m_owner.run("SELECT 1 FROM cloud.records WHERE owner = $1 AND zone = $2 AND name = $3",
                        {record.id.zone.owner, record.id.zone.name, record.id.name});
        if (!rows)
            return rows.error();
        if (rows->count() == 0 && !record.changeTag.empty())
            return CloudError{CloudErrorCode::unknownItem,
                              fmt::format("the record {} no longer exists", record.id.name),
                              std::nullopt, record.id.name};
        return CloudError{CloudErrorCode::serverRecordChanged,
                          fmt::format("the record {} changed on the server", record.id.name),
                          std::nullopt, record.id.name};
    }

    PostgresCloudContainer& m_owner;
    bool m_shared;
};

// --- Container --------------------------------------------------------------

PostgresCloudContainer::PostgresCloudContainer(Options options)
    : m_options(std::move(options)), m_private(std::make_unique<Database>(*this, false)),
      m_shared(std::make_unique<Database>(*this, true)) {
    if (m_options.maxRequestsPerSecond > 0)
        m_rateLimit = std::make_unique<RateLimit>(m_options.maxRequestsPerSecond);
}

PostgresCloudContainer::~PostgresCloudContainer() = default;

CloudResult<std::unique_ptr<PostgresCloudContainer>> PostgresCloudContainer::open(Options options) {
    std::unique_ptr<PostgresCloudContainer> container(
        new PostgresCloudContainer(std::move(options)));
    if (auto ok = container->begin(); !ok)
        return std::unexpected(ok.error());
    return container;
}

CloudResult<> PostgresCloudContainer::begin() {
    if (!m_connection || m_connection->socket() < 0 || !m_connection->healthy()) {
        m_listening = false;
        auto connection = PostgresConnection::open(m_options.connection, m_options.connectTimeout);
        if (!connection)
            return std::unexpected(cloudErrorFrom(connection.error()));
        m_connection = std::move(*connection);
        auto user = run("SELECT current_user");
        if (!user)
            return std::unexpected(user.error());
        m_user = std::string(user->text(0, 0));
    }
    if (!m_listening) {
        if (auto ok = listen(); !ok)
            return ok;
    }
    if (m_rateLimit) {
        if (const auto wait = m_rateLimit->take())
            return cloudFail(CloudErrorCode::requestRateLimited,
                             fmt::format("more than {} cloud requests a second; wait {:.2f} s",
                                         m_options.maxRequestsPerSecond, *wait),
                             *wait);
    }
    return {};
}

// Listening needs the schema; until it is set up there is nothing to hear.
CloudResult<> PostgresCloudContainer::listen() {
    auto setUp = isServerSetUp();
    if (!setUp)
        return std::unexpected(setUp.error());
    if (!*setUp)
        return {};
    auto channels =
        run("SELECT cloud.channel(current_user, 'private'), cloud.channel(current_user, 'shared')");
    if (!channels)
        return std::unexpected(channels.error());
    auto done =
        run(fmt::format("LISTEN {}; LISTEN {}", m_connection->quoteIdentifier(channels->text(0, 0)),
                        m_connection->quoteIdentifier(channels->text(0, 1))));
    if (!done)
        return std::unexpected(done.error());
    m_sharedChannel = std::string(channels->text(0, 1));
    m_listening = true;
    return {};
}

CloudResult<PostgresRows>
PostgresCloudContainer::run(std::string_view sql,
                            const std::vector<PostgresConnection::Parameter>& parameters) {
    auto rows = m_connection->execute(sql, parameters);
    if (!rows)
        return std::unexpected(cloudErrorFrom(rows.error()));
    return std::move(*rows);
}

template <class F> auto PostgresCloudContainer::transaction(F&& body) -> decltype(body()) {
    if (auto started = run("BEGIN"); !started)
        return std::unexpected(started.error());
    auto result = body();
    if (!result) {
        (void)run("ROLLBACK");
        return result;
    }
    if (auto committed = run("COMMIT"); !committed)
        return std::unexpected(committed.error());
    return result;
}

CloudResult<bool> PostgresCloudContainer::isServerSetUp() {
    auto rows = run("SELECT to_regclass('cloud.schema_version') IS NOT NULL");
    if (!rows)
        return std::unexpected(rows.error());
    return rows->text(0, 0) == "t";
}

CloudResult<> PostgresCloudContainer::setUpServer() {
    if (auto ok = begin(); !ok)
        return ok;
    if (auto done = run(cloudSchema()); !done)
        return std::unexpected(done.error());
    return m_listening ? CloudResult<>{} : listen();
}

CloudResult<CloudAccountStatus> PostgresCloudContainer::accountStatus() {
    if (auto ok = begin(); !ok) {
        switch (ok.error().code) {
        case CloudErrorCode::notAuthenticated: return CloudAccountStatus::noAccount;
        case CloudErrorCode::networkUnavailable:
        case CloudErrorCode::networkFailure:
        case CloudErrorCode::serviceUnavailable: return CloudAccountStatus::temporarilyUnavailable;
        default: return std::unexpected(ok.error());
        }
    }
    return CloudAccountStatus::available;
}

CloudResult<std::string> PostgresCloudContainer::currentUser() {
    if (auto ok = begin(); !ok)
        return std::unexpected(ok.error());
    return m_user;
}

CloudDatabase& PostgresCloudContainer::privateDatabase() {
    return *m_private;
}

CloudDatabase& PostgresCloudContainer::sharedDatabase() {
    return *m_shared;
}

CloudResult<> PostgresCloudContainer::saveShare(const CloudShare& share) {
    if (auto ok = begin(); !ok)
        return ok;
    return transaction([&]() -> CloudResult<> {
        auto zone = run("SELECT 1 FROM cloud.zones WHERE owner = current_user AND owner = $1 "
                        "AND name = $2",
                        {share.zone.owner, share.zone.name});
        if (!zone)
            return std::unexpected(zone.error());
        if (zone->count() == 0)
            return cloudFail(CloudErrorCode::zoneNotFound,
                             fmt::format("no zone {}", zoneText(share.zone)));
        auto role = run("SELECT 1 FROM pg_roles WHERE rolname = $1 AND rolname <> current_user",
                        {share.participant});
        if (!role)
            return std::unexpected(role.error());
        if (role->count() == 0)
            return cloudFail(
                CloudErrorCode::invalidArguments,
                fmt::format("{} cannot join a share of {}", share.participant, m_user));
        auto done = run(
            "INSERT INTO cloud.shares (zone, participant, permission) VALUES ($1, $2, $3) "
            "ON CONFLICT (owner, zone, participant) "
            "DO UPDATE SET permission = excluded.permission",
            {share.zone.name, share.participant, std::string(permissionText(share.permission))});
        if (!done)
            return std::unexpected(done.error());
        return {};
    });
}

CloudResult<> PostgresCloudContainer::removeShare(const CloudShare& share) {
    if (auto ok = begin(); !ok)
        return ok;
    auto zone =
        run("SELECT 1 FROM cloud.zones WHERE owner = current_user AND owner = $1 AND name = $2",
            {share.zone.owner, share.zone.name});
    if (!zone)
        return std::unexpected(zone.error());
    if (zone->count() == 0)
        return cloudFail(CloudErrorCode::zoneNotFound,
                         fmt::format("no zone {}", zoneText(share.zone)));
    auto done = run("DELETE FROM cloud.shares WHERE owner = current_user AND zone = $1 "
                    "AND participant = $2",
                    {share.zone.name, share.participant});
    if (!done)
        return std::unexpected(done.error());
    return {};
}

CloudResult<std::vector<CloudShare>> PostgresCloudContainer::fetchShares() {
    if (auto ok = begin(); !ok)
        return std::unexpected(ok.error());
    auto rows =
        run("SELECT zone, participant, permission FROM cloud.shares "
            "WHERE owner = current_user ORDER BY zone COLLATE \"C\", participant COLLATE \"C\"");
    if (!rows)
        return std::unexpected(rows.error());
    std::vector<CloudShare> out;
    for (int row = 0; row < rows->count(); ++row)
        out.push_back({{std::string(rows->text(row, 0)), m_user},
                       std::string(rows->text(row, 1)),
                       rows->text(row, 2) == "readOnly" ? CloudSharePermission::readOnly
                                                        : CloudSharePermission::readWrite});
    return out;
}

int PostgresCloudContainer::pushSocket() const {
    return m_connection ? m_connection->socket() : -1;
}

CloudResult<std::vector<CloudPush>> PostgresCloudContainer::takePushes() {
    if (!m_connection)
        return std::vector<CloudPush>{};
    auto notifications = m_connection->takeNotifications();
    if (!notifications)
        return std::unexpected(cloudErrorFrom(notifications.error()));
    std::set<std::string> databases;
    for (const auto& notification : *notifications)
        databases.insert(notification.channel == m_sharedChannel ? "shared" : "private");
    std::vector<CloudPush> pushes;
    if (databases.empty())
        return pushes;
    auto rows = run("SELECT database, id FROM cloud.subscriptions WHERE owner = current_user "
                    "ORDER BY id COLLATE \"C\"");
    if (!rows)
        return std::unexpected(rows.error());
    for (int row = 0; row < rows->count(); ++row) {
        if (databases.contains(std::string(rows->text(row, 0))))
            pushes.push_back({std::string(rows->text(row, 1))});
    }
    return pushes;
}

CloudResult<std::vector<CloudPush>> PostgresCloudContainer::waitForPushes(double timeoutSeconds) {
    const auto deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(std::max(0.0, timeoutSeconds)));
    while (true) {
        if (!m_connection || !m_connection->healthy()) {
            if (auto ok = begin(); !ok)
                return std::unexpected(ok.error());
        }
        auto pushes = takePushes();
        if (!pushes || !pushes->empty())
            return pushes;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return pushes;
        pollfd wait{pushSocket(), POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(left)) < 0 && errno != EINTR)
            return cloudFail(CloudErrorCode::internalError, "cannot wait for the cloud database");
    }
}

} // namespace tasket::platform
