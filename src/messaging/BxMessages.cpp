#include "messaging/BxMessages.h"

#include "messaging/DomainConnection.h"
#include "messaging/MessageLogger.h"
#include "platform/Platform.h"
#include "support/Utf8.h"

namespace brindlemar {

namespace {
constexpr std::string_view kReplyPortWord = "bxclient";
constexpr auto kSendTimeout = std::chrono::seconds(3);

Guarded<std::shared_ptr<BxMessages>>& shared() {
    static Guarded<std::shared_ptr<BxMessages>> instance;
    return instance;
}

void log(const LogScope& scope, const RequestLine& line, const auto& value) {
    if (!line.text.empty()) scope.at(line.level, line.text, value);
}

/// Asks the platform in a task of its own; a failure is only logged.
void requestDomainChange(void (*change)(DomainHandler), std::string_view function, std::string_view failureText) {
    Platform::current().tasks.async([=] {
        change([=](std::optional<FileProviderError> error) {
            if (error) LogScope(messageLogger(), function).warning(failureText, error->localizedDescription());
        });
    });
}
} // namespace

BxMessages& BxMessages::sharedInstance() {
    return *shared().with([](std::shared_ptr<BxMessages>& instance) {
        if (!instance) instance.reset(new BxMessages);
        return instance.get();
    });
}

void BxMessages::reset() {
    const auto dropped = shared().with([](auto& instance) { return std::exchange(instance, nullptr); });
}

BxMessages::BxMessages()
    : name_(std::string(kReplyPortWord)),
      ports_({.message = message_callback,
              .hostPortInvalidated = invalidation_callback,
              .replyPortInvalidated = invalidation_callback2,
              .hostPortCreated = [] {
                  requestDomainChange(reconnectDomain, "port(forDomain:canRetry:)", "Failed to reconnect domain: ");
              }}) {}

void BxMessages::setBxMessagesName(std::string name) {
    name_.with([&](std::string& current) { current.swap(name); });
}

std::shared_ptr<RemotePort> BxMessages::port(const std::string& forDomain, bool) {
    return ports_.port(forDomain, bxMessagesName());
}

void BxMessages::recieveMessage(const std::optional<std::string>& message) const {
    if (message) LogScope(messageLogger(), "recieveMessage(_:)").info(*message);
}

void BxMessages::send(const Outgoing& request, CompletionEntry completion) {
    const RequestRow& row = request.row;
    const LogScope scope{messageLogger(), row.function};
    const auto port = this->port(request.domain);
    if (!port) {
        log(scope, row.noPort, request.subject);
        const bool hasText = row.unreachable == UnreachableText::empty;
        completion(hasText ? std::optional<Payload>(std::in_place) : std::nullopt, serverUnreachable());
        return;
    }
    if (request.subject.empty() && !row.noSubject.text.empty()) scope.at(row.noSubject.level, row.noSubject.text);
    log(scope, row.starting, request.subject);
    const std::optional<std::string> payload = request.payload();
    if (!payload) {
        if (row.reportsEncoding) scope.error(unencodable().localizedDescription());
        return;
    }
    CompletionEntry entry = std::move(completion);
    if (!row.answered.text.empty())
        entry = [&row, subject = request.subject, inner = std::move(entry)](auto reply, auto error) {
            log(LogScope(messageLogger(), row.function), row.answered, subject);
            return inner(std::move(reply), std::move(error));
        };
    if (row.delivery == ReplyDelivery::mainQueue)
        entry = [inner = std::move(entry)](auto reply, auto error) {
            Platform::current().mainQueue.async(
                [inner, reply = std::move(reply), error = std::move(error)] { inner(reply, error); });
            return kFinished;
        };
    if (row.variant == SendVariant::callerThread) return registerAndSend(row, port, *payload, std::move(entry));
    Platform::current().mainQueue.async([this, &row, port, payload = *payload, entry = std::move(entry)] {
        registerAndSend(row, port, payload, entry);
    });
}

void BxMessages::registerAndSend(const RequestRow& row, const std::shared_ptr<RemotePort>& port,
                                 std::string_view payload, CompletionEntry entry) {
    const auto request = std::make_shared<WaitingRequest>(std::move(entry));
    std::int32_t id, status;
    {
        std::lock_guard turn(sendTurn_);
        id = table_.enter(request);
        status = port->sendRequest({.msgid = id, .data = payload, .sendTimeout = kSendTimeout}).status;
        table_.advance();
    }
    if (status >= 0) return;
    log(LogScope(messageLogger(), row.function), row.failed, status);
    // The port's invalidation may have been dealt with before this request entered the table; nobody else would ever
    // answer it then. Failing it a second time does nothing.
    if (ports_.holds(*port)) return;
    Platform::current().tasks.async([this, id, request] {
        request->fail(serverUnreachable());
        removeLater(id, request);
    });
}

std::optional<std::string> BxMessages::messageReceived(std::int32_t msgid, const Payload& data) {
    const auto request = table_.find(msgid);
    if (!request) return "canceled";
    Payload reply = data;
    if (!isValidUtf8(data.bytes())) {
        LogScope(messageLogger(), "message_callback(local:msgid:data:info:)")
            .error("reply is not valid UTF-8 and counts as empty: ", msgid);
        reply = Payload();
    }
    request->deliver(
        {.reply = std::move(reply),
         .error = std::nullopt,
         .whenFinished = [this, msgid, weak = std::weak_ptr(request)] { removeLater(msgid, weak.lock()); }});
    Platform::current().backgroundQueue.async([request] { request->runAnswers(); });
    return std::nullopt;
}

void BxMessages::removeLater(std::int32_t id, std::shared_ptr<WaitingRequest> request) {
    Platform::current().mainQueue.async([this, id, request = std::move(request)] { table_.remove(id, request); });
}

void BxMessages::hostPortInvalidated(const MessagePort& port) {
    constexpr std::string_view function = "invalidation_callback(port:info:)";
    LogScope(messageLogger(), function).debug("INVALIDATE PORT");
    ports_.forgetHostPort(port);
    for (const auto& request : table_.takeAll())
        Platform::current().tasks.async([request] { request->fail(serverUnreachable()); });
    requestDomainChange(disconnectDomain, function, "Failed to disconnect domain: ");
}

void BxMessages::replyPortInvalidated(const MessagePort& port) {
    ports_.forgetReplyPort(port);
    requestDomainChange(disconnectDomain, "invalidation_callback2(port:info:)", "Failed to disconnect domain: ");
}

std::optional<std::string> message_callback(LocalPort&, std::int32_t msgid, const Payload& data) {
    return BxMessages::sharedInstance().messageReceived(msgid, data);
}

void invalidation_callback(MessagePort& port) { BxMessages::sharedInstance().hostPortInvalidated(port); }
void invalidation_callback2(MessagePort& port) { BxMessages::sharedInstance().replyPortInvalidated(port); }

} // namespace brindlemar
