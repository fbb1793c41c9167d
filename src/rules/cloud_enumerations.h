// Cloud bookkeeping: the last known account status, the state of the last
// fetch or upload, and which of the two cloud databases a record lives in.
// The domain names these enumerations without listing their cases; the
// account statuses follow the cloud service's own order, the others are ours.
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_CloudAccountStatus {
    couldNotDetermine,
    available,
    restricted,
    noAccount,
    temporarilyUnavailable
};
enum class TK_CloudSyncStatus { none, inProgress, succeeded, failed };
enum class TK_CloudDatabaseType { privateDatabase, sharedDatabase };

template <> struct EnumTraits<TK_CloudAccountStatus> {
    using enum TK_CloudAccountStatus;
    static constexpr std::string_view typeName = "TK_CloudAccountStatus";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_CloudAccountStatus>>({
        {couldNotDetermine, "couldNotDetermine", "Could Not Determine"},
        {available, "available", "Available"},
        {restricted, "restricted", "Restricted"},
        {noAccount, "noAccount", "No Account"},
        {temporarilyUnavailable, "temporarilyUnavailable", "Temporarily Unavailable"},
    });
};

template <> struct EnumTraits<TK_CloudSyncStatus> {
    using enum TK_CloudSyncStatus;
    static constexpr std::string_view typeName = "TK_CloudSyncStatus";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_CloudSyncStatus>>({
        {none, "none", "Never Synced"},
        {inProgress, "inProgress", "In Progress"},
        {succeeded, "succeeded", "Succeeded"},
        {failed, "failed", "Failed"},
    });
};

template <> struct EnumTraits<TK_CloudDatabaseType> {
    using enum TK_CloudDatabaseType;
    static constexpr std::string_view typeName = "TK_CloudDatabaseType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_CloudDatabaseType>>({
        {privateDatabase, "privateDatabase", "Private"},
        {sharedDatabase, "sharedDatabase", "Shared"},
    });
};

static_assert(isWellFormedTable<TK_CloudAccountStatus>());
static_assert(isWellFormedTable<TK_CloudSyncStatus>());
static_assert(isWellFormedTable<TK_CloudDatabaseType>());

} // namespace tasket::rules
