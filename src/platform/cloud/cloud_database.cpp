#include "platform/cloud/cloud_database.h"

namespace tasket::platform {

std::string_view cloudErrorName(CloudErrorCode code) {
    switch (code) {
    case CloudErrorCode::internalError: return "internalError";
    case CloudErrorCode::partialFailure: return "partialFailure";
    case CloudErrorCode::networkUnavailable: return "networkUnavailable";
    case CloudErrorCode::networkFailure: return "networkFailure";
    case CloudErrorCode::badContainer: return "badContainer";
    case CloudErrorCode::serviceUnavailable: return "serviceUnavailable";
    case CloudErrorCode::requestRateLimited: return "requestRateLimited";
    case CloudErrorCode::missingEntitlement: return "missingEntitlement";
    case CloudErrorCode::notAuthenticated: return "notAuthenticated";
    case CloudErrorCode::permissionFailure: return "permissionFailure";
    case CloudErrorCode::unknownItem: return "unknownItem";
    case CloudErrorCode::invalidArguments: return "invalidArguments";
    case CloudErrorCode::serverRecordChanged: return "serverRecordChanged";
    case CloudErrorCode::serverRejectedRequest: return "serverRejectedRequest";
    case CloudErrorCode::operationCancelled: return "operationCancelled";
    case CloudErrorCode::zoneBusy: return "zoneBusy";
    case CloudErrorCode::badDatabase: return "badDatabase";
    case CloudErrorCode::quotaExceeded: return "quotaExceeded";
    case CloudErrorCode::zoneNotFound: return "zoneNotFound";
    case CloudErrorCode::limitExceeded: return "limitExceeded";
    case CloudErrorCode::alreadyShared: return "alreadyShared";
    }
    return "unknown";
}

} // namespace tasket::platform
