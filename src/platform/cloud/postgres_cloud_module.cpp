#include "platform/cloud/postgres_cloud_module.h"

#include "platform/module_loader.h"

namespace tasket::platform {

namespace {

CloudResult<const PostgresCloudFactories*> factories() {
    static const auto loaded = loadModuleTable(
        {.inPrefix = TASKET_POSTGRES_MODULE_IN_PREFIX,
         .built = TASKET_POSTGRES_MODULE_BUILT,
         .entry = kPostgresCloudModuleEntry,
         .what = "the cloud database module"},
        PostgresCloudFactories::kVersion);
    if (!loaded)
        return cloudFail(CloudErrorCode::internalError, loaded.error().message);
    return static_cast<const PostgresCloudFactories*>(*loaded);
}

} // namespace

CloudResult<std::unique_ptr<ServerCloudContainer>>
openPostgresCloudContainer(PostgresCloudOptions options) {
    auto loaded = factories();
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->open(std::move(options));
}

CloudResult<> checkPostgresConnection(const std::string& connection) {
    auto loaded = factories();
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->check(connection);
}

} // namespace tasket::platform
