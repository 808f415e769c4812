// The requests through which the extension reads and changes files on the host's side, and the commands to the host
// itself.
#pragma once

#include "messaging/Request.h"

namespace brindlemar {

enum class FileRequest {
    itemJSON,
    enumerateItemsJSON,
    enumerateChanges,
    pathForIdentifier,
    fetchItem,
    searchBucket,
    updateItem,
    uploadItem,
    deleteItem,
    deletedItemIDs,
};

inline constexpr std::array kFileRequests{
    RequestRow{.command = "itemForIdentifier",
               .function = "itemJSON(forIdentifier:withDomain:completionHandler:)",
               .keys = {"identifier"},
               .root = RootIdentifier::sentAsZero,
               .noSubject = {LogLevel::notice, "nil item identifier"},
               .failed = {LogLevel::error, "itemJSON couldn't send "}},
    RequestRow{.command = "enumerateItemsJSON",
               .function = "enumerateItemsJSON(itemID:from:withDomain:completionHandler:)",
               .keys = {"identifier", "from"},
               .root = RootIdentifier::sentAsZero,
               .starting = {LogLevel::debug, "enumerateItemsJSON starting "},
               .noPort = {LogLevel::error, "enumerateItemsJSON no port "},
               .answered = {LogLevel::debug, "enumerateItemsJSON completion block "},
               .failed = {LogLevel::error, "enumerateItemsJSON couldn't send "}},
    RequestRow{.command = "enumerateDeletedJSON",
               .function = "enumerateChanges(fromAnchorJSON:withID:withDomain:completionHandler:)",
               .keys = {"identifier"},
               .root = RootIdentifier::sentAsZero,
               .starting = {LogLevel::debug, "enumerateChanges starting "},
               .noPort = {LogLevel::error, "enumerateDeletedJSON no port "},
               .failed = {LogLevel::error, "enumerateDeletedJSON couldn't send "}},
    RequestRow{.command = "pathForIdentifier",
               .function = "pathForIdentifier(forIdentifier:withDomain:completionHandler:)",
               .keys = {"identifier"},
               .root = RootIdentifier::sentAsZero,
               .failed = {LogLevel::warning, "pathForIdentifier couldn't send "}},
    RequestRow{.command = "fetchItem",
               .function = "fetchItem(_:toFolder:withDomain:completionHandler:)",
               .keys = {"identifier", "toFolder"},
               .root = RootIdentifier::sentAsZero},
    RequestRow{.command = "searchBucket",
               .function = "searchBucket(bucket:searchString:withDomain:completionHandler:)",
               .keys = {"identifier", "searchString"}},
    RequestRow{.command = "updateItem",
               .function = "updateItem(theItemIdentifier:withParentID:theName:theMtime:withDomain:completionHandler:)",
               .keys = {"identifier", "parentID", "name", "mtime"},
               .failed = {LogLevel::error, "updateItem failed for "}},
    RequestRow{.command = "uploadItemAtPath",
               .function = "uploadItem(atPath:withParentID:theName:mtime:withDomain:completionHandler:)",
               .keys = {"path", "parentID", "mtime", "name"},
               .variant = SendVariant::callerThread,
               .unreachable = UnreachableText::none,
               .starting = {LogLevel::info, "uploadItem with mtime "},
               .failed = {LogLevel::info, "uploadItem "}},
    RequestRow{.command = "deleteItem",
               .function = "deleteItem(_:recursive:withDomain:completionHandler:)",
               .keys = {"identifier", "recursive"},
               .variant = SendVariant::callerThread,
               .failed = {LogLevel::error, "deleteItem failed for "}},
    // The one request that is not JSON: its payload is "deletedItemIDs:" and the identifier.
    RequestRow{.command = "deletedItemIDs:",
               .function = "deletedItemIDs(_:withDomain:completionHandler:)",
               .keys = {},
               .variant = SendVariant::callerThread,
               .answered = {LogLevel::debug, "in completion block"}},
};

inline constexpr std::array kHostCommands{
    RequestRow{.command = "reconnect",
               .function = "reconnect(withDomain:completionHandler:)",
               .keys = {},
               .variant = SendVariant::callerThread},
    RequestRow{.command = "shutdown",
               .function = "shutdown(withDomain:completionHandler:)",
               .keys = {},
               .variant = SendVariant::callerThread},
    RequestRow{.command = "status",
               .function = "status(withDomain:completionHandler:)",
               .keys = {},
               .variant = SendVariant::callerThread},
};

} // namespace brindlemar
