#include "host/commands/CommandTable.h"

#include <algorithm>
#include <array>

namespace brindlemar::host {

namespace {
void answerNothing(const Request& request) { request.reply("{}"); }

void answerStatus(const Request& request) {
    const Connection& connection = request.served.connection;
    request.reply(
        *JSON::object({{"status", "ok"}, {"name", connection.name}, {"domain", connection.domain}}).serialized());
}

consteval CommandRow admin(std::string_view name, Order order, Subject subject, AdminCommand* command,
                           std::string_view attribute = {}) {
    return {name, runAdmin, order, R"({"error":"The request failed."})", command, subject, attribute};
}

constexpr std::array kRows{
    CommandRow{"itemForIdentifier", itemForIdentifier, Order::lookup, ""},
    CommandRow{"enumerateItemsJSON", enumerateItems, Order::folder, ""},
    CommandRow{"enumerateDeletedJSON", enumerateDeleted, Order::folder, "[]"},
    CommandRow{"deletedItemIDs:", enumerateDeleted, Order::folder, "[]"},
    CommandRow{"pathForIdentifier", pathForIdentifier, Order::lookup},
    CommandRow{"fetchItem", fetchItem, Order::copy, R"({"status":"failure_no_retry"})"},
    CommandRow{"searchBucket", searchBucket, Order::any, "[]"},
    CommandRow{"updateItem", updateItem, Order::change, R"({"status":"failure"})"},
    CommandRow{"uploadItemAtPath", uploadItem, Order::copy},
    CommandRow{"deleteItem", deleteItem, Order::change},

    CommandRow{"reconnect", answerNothing},
    CommandRow{"shutdown", answerNothing},
    CommandRow{"status", answerStatus, Order::any, R"({"status":"failure"})"},

    admin("getACL", Order::lookup, Subject::item, getACL),
    admin("getBucketPolicy", Order::lookup, Subject::bucket, getDocument, "policy"),
    admin("setBucketPolicy", Order::change, Subject::bucket, setDocument, "policy"),
    admin("getBucketReplication", Order::lookup, Subject::bucket, getDocument, "replication"),
    admin("setBucketReplication", Order::change, Subject::bucket, setDocument, "replication"),
    admin("getBucketCORS", Order::lookup, Subject::bucket, getDocument, "cors"),
    admin("setBucketCORS", Order::change, Subject::bucket, setDocument, "cors"),
    admin("getBucketLifecycle", Order::lookup, Subject::bucket, getDocument, "lifecycle"),
    admin("setBucketLifecycle", Order::change, Subject::bucket, setDocument, "lifecycle"),
    admin("getBucketVersioning", Order::lookup, Subject::bucket, getSwitch, "versioning"),
    admin("setBucketVersioning", Order::change, Subject::bucket, setSwitch, "versioning"),
    admin("getBucketAcceleration", Order::lookup, Subject::bucket, getSwitch, "acceleration"),
    admin("setBucketAcceleration", Order::change, Subject::bucket, setSwitch, "acceleration"),
    admin("getBucketEncryption", Order::lookup, Subject::bucket, getEncryption),
    admin("setBucketEncryption", Order::change, Subject::bucket, setEncryption),
    admin("getBucketLogging", Order::lookup, Subject::bucket, getSwitch, "logging"), // nothing sets it
    admin("createBucket", Order::change, Subject::none, createBucket),
    admin("getObjectMetadata", Order::lookup, Subject::object, getObjectMetadata),
    admin("getObjectURL", Order::lookup, Subject::object, getObjectURL),
    admin("signURL", Order::lookup, Subject::object, signURL),
    admin("setObjectEncryption", Order::change, Subject::object, setEncryption),
    admin("setObjectStorageClass", Order::change, Subject::object, setObjectStorageClass),
    admin("initiateGlacierRestore", Order::change, Subject::object, initiateGlacierRestore),
    admin("listKMS", Order::any, Subject::none, listKeys),
    admin("listKMSKeys", Order::any, Subject::none, listKeys),
};
} // namespace

const CommandRow* findCommand(std::string_view name) {
    const auto row = std::ranges::find(kRows, name, &CommandRow::name);
    return row == kRows.end() ? nullptr : &*row;
}

} // namespace brindlemar::host
