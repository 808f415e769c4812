// The requests that administer the remote storage, as rows of a table.
#pragma once

#include "messaging/Request.h"

#include <string_view>

namespace brindlemar {

/// In the order of kAdminRequests.
enum class AdminRequest {
    getACL,
    getBucketPolicy,
    setBucketPolicy,
    getBucketReplication,
    setBucketReplication,
    getBucketCORS,
    setBucketCORS,
    getBucketLifecycle,
    setBucketLifecycle,
    getBucketVersioning,
    setBucketVersioning,
    getBucketAcceleration,
    setBucketAcceleration,
    getBucketEncryption,
    setBucketEncryption,
    getBucketLogging,
    signURL,
    createBucket,
    getObjectMetadata,
    getObjectURL,
    initiateGlacierRestore,
    setObjectEncryption,
    setObjectStorageClass,
    listKMS,
    listKMSKeys,
};

/// The one key whose value is a flag; all others are texts.
inline constexpr std::string_view kAdminFlag = "enable";

namespace admin {
consteval RequestRow row(std::string_view command, std::string_view function, RequestKeys keys, ReplyDelivery delivery,
                         RootIdentifier root = RootIdentifier::sentAsZero) {
    return {.command = command,
            .function = function,
            .keys = keys,
            .root = root,
            .variant = SendVariant::callerThread,
            .delivery = delivery,
            .reportsEncoding = true};
}
inline constexpr auto direct = ReplyDelivery::direct;
inline constexpr auto mainQueue = ReplyDelivery::mainQueue;
} // namespace admin

inline constexpr std::array kAdminRequests{
    admin::row("getACL", "getACL(forIdentifier:withDomain:completionHandler:)", {"identifier"}, admin::mainQueue),
    admin::row("getBucketPolicy", "getBucketPolicy(forIdentifier:withDomain:completionHandler:)", {"identifier"},
               admin::mainQueue),
    admin::row("setBucketPolicy", "setBucketPolicy(forIdentifier:policy:withDomain:completionHandler:)",
               {"identifier", "policy"}, admin::direct),
    admin::row("getBucketReplication", "getBucketReplication(forIdentifier:withDomain:completionHandler:)",
               {"identifier"}, admin::mainQueue),
    admin::row("setBucketReplication", "setBucketReplication(forIdentifier:replication:withDomain:completionHandler:)",
               {"identifier", "replication"}, admin::direct),
    admin::row("getBucketCORS", "getBucketCORS(forIdentifier:withDomain:completionHandler:)", {"identifier"},
               admin::mainQueue),
    admin::row("setBucketCORS", "setBucketCORS(forIdentifier:cors:withDomain:completionHandler:)",
               {"identifier", "cors"}, admin::direct),
    admin::row("getBucketLifecycle", "getBucketLifecycle(forIdentifier:withDomain:completionHandler:)", {"identifier"},
               admin::mainQueue),
    admin::row("setBucketLifecycle", "setBucketLifecycle(forIdentifier:lifecycle:withDomain:completionHandler:)",
               {"identifier", "lifecycle"}, admin::direct),
    admin::row("getBucketVersioning", "getBucketVersioning(forIdentifier:withDomain:completionHandler:)",
               {"identifier"}, admin::mainQueue),
    admin::row("setBucketVersioning", "setBucketVersioning(forIdentifier:enable:withDomain:completionHandler:)",
               {"identifier", "enable"}, admin::direct),
    admin::row("getBucketAcceleration", "getBucketAcceleration(forIdentifier:withDomain:completionHandler:)",
               {"identifier"}, admin::mainQueue),
    admin::row("setBucketAcceleration", "setBucketAcceleration(forIdentifier:enable:withDomain:completionHandler:)",
               {"identifier", "enable"}, admin::direct),
    admin::row("getBucketEncryption", "getBucketEncryption(forIdentifier:withDomain:completionHandler:)",
               {"identifier"}, admin::mainQueue),
    admin::row("setBucketEncryption",
               "setBucketEncryption(forIdentifier:encryptionType:encryptionKeyID:withDomain:completionHandler:)",
               {"identifier", "encryptionType", "encryptionKeyID"}, admin::mainQueue),
    admin::row("getBucketLogging", "getBucketLogging(forIdentifier:withDomain:completionHandler:)", {"identifier"},
               admin::mainQueue),
    admin::row("signURL", "signURL(forIdentifier:withDomain:completionHandler:)", {"identifier"}, admin::direct),
    admin::row("createBucket", "createBucket(name:region:withDomain:completionHandler:)", {"name", "region"},
               admin::direct, RootIdentifier::unchanged),
    admin::row("getObjectMetadata", "getObjectMetadata(forIdentifier:withDomain:completionHandler:)", {"identifier"},
               admin::mainQueue),
    admin::row("getObjectURL", "getObjectURL(forIdentifier:expiration:withDomain:completionHandler:)",
               {"identifier", "expiration"}, admin::mainQueue),
    admin::row("initiateGlacierRestore",
               "initiateGlacierRestore(forIdentifier:tier:days:withDomain:completionHandler:)",
               {"identifier", "tier", "days"}, admin::mainQueue),
    admin::row("setObjectEncryption",
               "setObjectEncryption(forIdentifier:encryptionType:encryptionKeyID:withDomain:completionHandler:)",
               {"identifier", "encryptionType", "encryptionKeyID"}, admin::direct),
    admin::row("setObjectStorageClass",
               "setObjectStorageClass(forIdentifier:storageClass:withDomain:completionHandler:)",
               {"identifier", "storageClass"}, admin::direct),
    admin::row("listKMS", "listKMS(theIdentifier:withDomain:completionHandler:)", {"identifier"}, admin::mainQueue,
               RootIdentifier::unchanged),
    admin::row("listKMSKeys", "listKMSKeys(theIdentifier:withDomain:completionHandler:)", {"identifier"}, admin::direct,
               RootIdentifier::unchanged),
};

} // namespace brindlemar
