// The cloud database module's one exported function: the factories of the
// PostgreSQL adapter (see postgres_cloud_module.h).
#include "platform/cloud/postgres_cloud_database.h"
#include "platform/cloud/postgres_cloud_module.h"

namespace {

using namespace tasket::platform;

CloudResult<std::unique_ptr<ServerCloudContainer>> open(PostgresCloudOptions options) {
    auto container = PostgresCloudContainer::open(std::move(options));
    if (!container)
        return std::unexpected(container.error());
    return std::unique_ptr<ServerCloudContainer>(std::move(*container));
}

CloudResult<> check(const std::string& connection) {
    if (auto checked = PostgresConnection::check(connection); !checked)
        return std::unexpected(cloudErrorFrom(checked.error()));
    return {};
}

constexpr PostgresCloudFactories kFactories{
    .version = PostgresCloudFactories::kVersion, .open = open, .check = check};

} // namespace

extern "C" __attribute__((visibility("default"))) const PostgresCloudFactories*
tasket_postgres_cloud_factories() {
    return &kFactories;
}
