// The host messaging object: every request to the host application, and the way back of its answers.
#pragma once

#include "messaging/Administration.h"
#include "messaging/PortDirectory.h"
#include "messaging/Request.h"
#include "messaging/RequestTable.h"
#include "platform/Timestamp.h"
#include "support/JSON.h"

#include <mutex>

namespace brindlemar {

/// One per process. Thread-safe.
///
/// Every request looks up the domain's host port first, which blocks for 2.5 seconds when the host is absent; then its
/// completion is called at once, on the calling thread, with the server-unreachable error. Otherwise the completion
/// gets the host's answer on the background queue, or the server-unreachable error, on a task, when the host goes away.
/// A request whose text is not valid UTF-8 cannot be encoded: it is not sent and its completion never called; dropping
/// the completion is how its owner learns of it. `mainQueue` requests return before their message is sent,
/// `callerThread` requests after it. A send takes at most 3 seconds and
/// waits for those before it.
class BxMessages final : public Administration {
public:
    static BxMessages& sharedInstance();
    /// Drops the shared instance with its ports and waiting entries. For tests, while nobody uses it.
    static void reset();

    /// Returns kFinished or kKeepListening.
    using RepeatingTextHandler = std::function<int(Payload reply, std::optional<NSError> error)>;
    using OptionalTextHandler = std::function<void(std::optional<Payload> reply, std::optional<NSError> error)>;
    using RepeatingErrorHandler = std::function<int(std::optional<NSError> error)>;

    /// The middle word of the reply ports' names.
    std::string bxMessagesName() const { return name_.copy(); }
    void setBxMessagesName(std::string name);

    /// True when there is a port to some host.
    bool connected() const { return ports_.hasHostPort(); }
    /// True when the domain's host was found and has not gone since. Never blocks.
    bool isReachable(const std::string& domain) const { return ports_.isReachable(domain); }
    /// The host port of the domain, or none. `canRetry` changes nothing: a lookup that has to create the port always
    /// tries ten times.
    std::shared_ptr<RemotePort> port(const std::string& forDomain, bool canRetry = true);
    /// Logs the text when there is one.
    void recieveMessage(const std::optional<std::string>& message) const;
    /// Requests that wait for an answer.
    std::size_t waitingCount() const { return table_.count(); }

    // Files and folders. Identifiers are the host's own item IDs.
    struct ItemJSON {
        std::string forIdentifier, withDomain;
    };
    void itemJSON(const ItemJSON& request, TextHandler completionHandler);
    struct EnumerateItemsJSON {
        std::string itemID, from, withDomain;
    };
    void enumerateItemsJSON(const EnumerateItemsJSON& request, TextHandler completionHandler);
    struct EnumerateChanges {
        std::string fromAnchorJSON /* not sent */, withID, withDomain;
    };
    void enumerateChanges(const EnumerateChanges& request, TextHandler completionHandler);
    struct PathForIdentifier {
        std::string forIdentifier, withDomain;
    };
    void pathForIdentifier(const PathForIdentifier& request, TextHandler completionHandler);
    struct FetchItem {
        std::string item, toFolder, withDomain;
    };
    void fetchItem(const FetchItem& request, RepeatingTextHandler completionHandler);
    struct SearchBucket {
        std::string bucket, searchString, withDomain;
    };
    void searchBucket(const SearchBucket& request, RepeatingTextHandler completionHandler);
    struct UpdateItem {
        std::string theItemIdentifier, withParentID, theName;
        Timestamp theMtime;
        std::string withDomain;
    };
    void updateItem(const UpdateItem& request, CompletionEntry completionHandler);
    struct UploadItem {
        std::string atPath, withParentID, theName;
        std::optional<Timestamp> mtime;
        std::string withDomain;
    };
    void uploadItem(const UploadItem& request, CompletionEntry completionHandler);
    struct DeleteItem {
        std::string item;
        bool recursive = false;
        std::string withDomain;
    };
    void deleteItem(const DeleteItem& request, RepeatingErrorHandler completionHandler);
    struct DeletedItemIDs {
        std::string item, withDomain;
    };
    void deletedItemIDs(const DeletedItemIDs& request, OptionalTextHandler completionHandler);

    void administer(const RequestRow& row, const std::string& withDomain, std::vector<JSON> values,
                    TextHandler completionHandler) override;

    // Commands to the host itself.
    void reconnect(const std::string& withDomain, TextHandler completionHandler);
    void shutdown(const std::string& withDomain, TextHandler completionHandler);
    void status(const std::string& withDomain, TextHandler completionHandler);

    // What the ports report. Called on the main queue.
    std::optional<std::string> messageReceived(std::int32_t msgid, const Payload& data);
    void hostPortInvalidated(const MessagePort& port);
    void replyPortInvalidated(const MessagePort& port);

private:
    BxMessages();

    struct Outgoing {
        const RequestRow& row;
        std::string domain;
        std::string subject;                                 // what the row's log lines name
        std::function<std::optional<std::string>()> payload; // none when it cannot be encoded
    };
    /// The one road of every request.
    void send(const Outgoing& request, CompletionEntry completion);
    /// The road for a payload of the row's command and keys with these values.
    void sendRow(const RequestRow& row, const std::string& domain, std::vector<JSON> values, CompletionEntry completion,
                 std::optional<std::string> subject = std::nullopt);
    void registerAndSend(const RequestRow& row, const std::shared_ptr<RemotePort>& port, std::string_view payload,
                         CompletionEntry entry);

    void removeLater(std::int32_t id, std::shared_ptr<WaitingRequest> request);

    Guarded<std::string> name_;
    PortDirectory ports_;
    RequestTable table_;
    std::mutex sendTurn_; // held for a whole register-send-advance; the table has its own lock for the moment it needs
};

// The callbacks that the ports are created with.
std::optional<std::string> message_callback(LocalPort& local, std::int32_t msgid, const Payload& data);
void invalidation_callback(MessagePort& port);
void invalidation_callback2(MessagePort& port);

} // namespace brindlemar
