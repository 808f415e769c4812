#include "messaging/BxMessages.h"
#include "messaging/FileRequests.h"
#include "messaging/MessageLogger.h"
#include "platform/Item.h"
#include "support/Utf8.h"

namespace brindlemar {

namespace {
constexpr const RequestRow& row(FileRequest request) { return kFileRequests[static_cast<std::size_t>(request)]; }

/// The values of a row, counted when compiled.
template <FileRequest Request, class... Values>
std::vector<JSON> values(const Values&... list) {
    static_assert(sizeof...(Values) == row(Request).keys.count, "one value for each key of the row");
    return {JSON(list)...};
}

/// A completion of one answer that always gets a text.
CompletionEntry once(BxMessages::TextHandler handler) {
    return [handler = std::move(handler)](std::optional<Payload> reply, std::optional<NSError> error) {
        handler(std::move(reply).value_or(Payload()), std::move(error));
        return kFinished;
    };
}

CompletionEntry repeating(BxMessages::RepeatingTextHandler handler) {
    return [handler = std::move(handler)](std::optional<Payload> reply, std::optional<NSError> error) {
        return handler(std::move(reply).value_or(Payload()), std::move(error));
    };
}
} // namespace

void BxMessages::sendRow(const RequestRow& row, const std::string& domain, std::vector<JSON> values,
                         CompletionEntry completion, std::optional<std::string> subject) {
    if (!subject) subject = values.empty() ? "" : values[0].stringValue();
    send({row, domain, std::move(*subject),
          [&row, &values]() {
              JSON::Members members{{"command", row.command}};
              for (std::size_t i = 0; i < row.keys.count; ++i) members.emplace_back(row.keys.names[i], values[i]);
              const bool isRoot = row.root == RootIdentifier::sentAsZero &&
                                  values[0].string() == NSFileProviderRootContainerItemIdentifier;
              if (isRoot) members[1].second = "0";
              return JSON::object(members).serialized();
          }},
         std::move(completion));
}

void BxMessages::itemJSON(const ItemJSON& request, TextHandler completionHandler) {
    sendRow(row(FileRequest::itemJSON), request.withDomain, values<FileRequest::itemJSON>(request.forIdentifier),
            once(std::move(completionHandler)));
}

void BxMessages::enumerateItemsJSON(const EnumerateItemsJSON& request, TextHandler completionHandler) {
    sendRow(row(FileRequest::enumerateItemsJSON), request.withDomain,
            values<FileRequest::enumerateItemsJSON>(request.itemID, request.from), once(std::move(completionHandler)));
}

void BxMessages::enumerateChanges(const EnumerateChanges& request, TextHandler completionHandler) {
    sendRow(row(FileRequest::enumerateChanges), request.withDomain,
            values<FileRequest::enumerateChanges>(request.withID), once(std::move(completionHandler)));
}

void BxMessages::pathForIdentifier(const PathForIdentifier& request, TextHandler completionHandler) {
    sendRow(row(FileRequest::pathForIdentifier), request.withDomain,
            values<FileRequest::pathForIdentifier>(request.forIdentifier), once(std::move(completionHandler)));
}

void BxMessages::fetchItem(const FetchItem& request, RepeatingTextHandler completionHandler) {
    sendRow(row(FileRequest::fetchItem), request.withDomain,
            values<FileRequest::fetchItem>(request.item, request.toFolder), repeating(std::move(completionHandler)));
}

void BxMessages::searchBucket(const SearchBucket& request, RepeatingTextHandler completionHandler) {
    sendRow(row(FileRequest::searchBucket), request.withDomain,
            values<FileRequest::searchBucket>(request.bucket, request.searchString),
            repeating(std::move(completionHandler)));
}

void BxMessages::updateItem(const UpdateItem& request, CompletionEntry completionHandler) {
    sendRow(row(FileRequest::updateItem), request.withDomain,
            values<FileRequest::updateItem>(request.theItemIdentifier, request.withParentID, request.theName,
                                            wholeSecondsSince1970(request.theMtime)),
            std::move(completionHandler));
}

void BxMessages::uploadItem(const UploadItem& request, CompletionEntry completionHandler) {
    const std::string seconds = std::to_string(request.mtime ? wholeSecondsSince1970(*request.mtime) : 0);
    sendRow(
        row(FileRequest::uploadItem), request.withDomain,
        values<FileRequest::uploadItem>(request.atPath, request.withParentID, seconds, request.theName),
        [handler = std::move(completionHandler)](std::optional<Payload> reply, std::optional<NSError> error) {
            // An answer without a text counts as an empty one; without any answer there is no text either.
            if (!reply && !error) reply.emplace();
            return handler(std::move(reply), std::move(error));
        },
        request.atPath + ", " + seconds);
}

void BxMessages::deleteItem(const DeleteItem& request, RepeatingErrorHandler completionHandler) {
    sendRow(row(FileRequest::deleteItem), request.withDomain,
            values<FileRequest::deleteItem>(request.item, request.recursive ? "true" : "false"),
            [handler = std::move(completionHandler)](const auto&, std::optional<NSError> error) {
                return handler(std::move(error));
            });
}

void BxMessages::deletedItemIDs(const DeletedItemIDs& request, OptionalTextHandler completionHandler) {
    const RequestRow& row = brindlemar::row(FileRequest::deletedItemIDs);
    send({row, request.withDomain, "",
          [&]() -> std::optional<std::string> {
              if (!isValidUtf8(request.item)) return std::nullopt;
              return std::string(row.command).append(request.item);
          }},
         [handler = std::move(completionHandler)](std::optional<Payload> reply, std::optional<NSError> error) {
             handler(std::move(reply), std::move(error));
             return kFinished;
         });
}

void BxMessages::administer(const RequestRow& row, const std::string& withDomain, std::vector<JSON> values,
                            TextHandler completionHandler) {
    sendRow(row, withDomain, std::move(values), once(std::move(completionHandler)));
}

void BxMessages::reconnect(const std::string& withDomain, TextHandler completionHandler) {
    sendRow(kHostCommands[0], withDomain, {}, once(std::move(completionHandler)));
}

void BxMessages::shutdown(const std::string& withDomain, TextHandler completionHandler) {
    sendRow(kHostCommands[1], withDomain, {}, once(std::move(completionHandler)));
}

void BxMessages::status(const std::string& withDomain, TextHandler completionHandler) {
    sendRow(kHostCommands[2], withDomain, {}, once(std::move(completionHandler)));
}

} // namespace brindlemar
