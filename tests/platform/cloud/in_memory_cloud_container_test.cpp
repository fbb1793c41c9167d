// The in-memory cloud database keeps the adapters' contract, and its fault
// script fails the requests it names.
#include "cloud_contract.h"
#include "platform/cloud/in_memory_cloud_container.h"

using namespace tasket::platform;
using tasket::testing::CloudBackend;
using tasket::testing::CloudContract;

namespace {

CloudBackend inMemory() {
    return {"InMemory", [] {
                auto server = std::make_shared<InMemoryCloudServer>();
                return [server](const std::string& account) -> std::unique_ptr<CloudContainer> {
                    server->addAccount(account);
                    return std::make_unique<InMemoryCloudContainer>(server, account);
                };
            }};
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Adapters, CloudContract, ::testing::Values(inMemory()),
                         [](const ::testing::TestParamInfo<CloudBackend>& param) {
                             return param.param.name;
                         });

// Faults hit the requests they name, by ordinal and count; a lost connection
// leaves the first operations of a batch applied.
TEST(InMemoryCloudContainer, FaultScriptFailsTheNamedRequests) {
    auto server = std::make_shared<InMemoryCloudServer>();
    server->addAccount("alice");
    InMemoryCloudContainer a(server, "alice");
    const CloudZoneID zone{"Zone", "alice"};
    ASSERT_TRUE(a.privateDatabase().modifyZones({zone}, {}).has_value());
    server->addFault({.kind = CloudRequestKind::queryRecords,
                      .ordinal = 2,
                      .count = 2,
                      .code = CloudErrorCode::requestRateLimited,
                      .retryAfterSeconds = 10.0,
                      .appliedBeforeFailure = 0,
                      .account = {}});
    server->addFault({.kind = CloudRequestKind::modifyRecords,
                      .ordinal = 1,
                      .count = 1,
                      .code = CloudErrorCode::networkFailure,
                      .retryAfterSeconds = {},
                      .appliedBeforeFailure = 2,
                      .account = {}});

    std::vector<bool> answered;
    for (int i = 0; i < 4; ++i) {
        const auto result = a.privateDatabase().queryRecords({"TK_Task", zone, 0});
        answered.push_back(result.has_value());
        if (!result) {
            EXPECT_EQ(result.error().retryAfterSeconds, 10.0);
        }
    }
    EXPECT_EQ(answered, (std::vector{true, false, false, true}));

    const auto task = [&](std::string name) {
        return CloudRecord{"TK_Task", {std::move(name), zone}, {}, {}, {}, {}};
    };
    const auto lost = a.privateDatabase().modifyRecords({task("T1"), task("T2"), task("T3")}, {});
    ASSERT_FALSE(lost.has_value());
    EXPECT_EQ(lost.error().code, CloudErrorCode::networkFailure);
    EXPECT_EQ(server->records(zone).size(), 2U);
    EXPECT_EQ(server->requests().back().failure, CloudErrorCode::networkFailure);

    server->setAccountStatus("alice", CloudAccountStatus::noAccount);
    EXPECT_EQ(a.accountStatus().value(), CloudAccountStatus::noAccount);
    EXPECT_EQ(a.privateDatabase().fetchAllZones().error().code, CloudErrorCode::notAuthenticated);
}
