#include "provider/Calls.h"

#include "messaging/BxMessages.h"
#include "provider/CallRows.h"
#include "provider/EventText.h"

#include <array>
#include <charconv>

namespace brindlemar {

std::span<const CallRow> callRows() {
    static constexpr std::array rows{
        CallRow{"item", callItem},          CallRow{"delete", callDelete},        CallRow{"fetch", callFetch},
        CallRow{"create", callCreate},      CallRow{"modify", callModify},        CallRow{"list", callList},
        CallRow{"browse", callBrowse},      CallRow{"changes", callChanges},      CallRow{"anchor", callAnchor, false},
        CallRow{"watch", callWatch, false}, CallRow{"admin", callAdmin},          CallRow{"search", callSearch},
        CallRow{"path", callPath},          CallRow{"forget", callForget, false},
    };
    return rows;
}

std::optional<FileURL> Call::file() const {
    const auto path = arguments["file"].string();
    return path ? std::optional(FileURL{std::string(*path)}) : std::nullopt;
}

std::optional<Timestamp> Call::time(std::string_view key) const {
    const std::string written = text(key);
    const std::string_view value = written;
    const std::size_t dot = std::min(value.find('.'), value.size());
    std::int64_t seconds = 0, fraction = 0;
    if (std::from_chars(value.data(), value.data() + dot, seconds).ec != std::errc()) return std::nullopt;
    std::string digits(value.substr(std::min(dot + 1, value.size())));
    digits.resize(9, '0'); // nanoseconds
    std::from_chars(digits.data(), digits.data() + digits.size(), fraction);
    return Timestamp(std::chrono::seconds(seconds) + std::chrono::nanoseconds(fraction));
}

std::string Call::domain() const {
    for (const std::string_view key : {"id", "parent"}) {
        const std::string identifier = text(key);
        if (const ResolvedIdentifier item = resolveIdentifier(identifier); item.qualified)
            return std::string(item.domain);
    }
    return text("domain");
}

void Call::fail(const NSError& error) const { output->write(completionEvent(nullptr, error)); }

namespace {
/// While the domain is disconnected, one call at a time looks whether a connection's host is back; the others need not
/// wait.
bool hostMayAnswer(const Call& call) {
    DomainManager& manager = call.places.manager;
    const std::string domain = call.domain();
    BxMessages& messages = BxMessages::sharedInstance();
    if (domain.empty() || manager.isConnected() || messages.isReachable(domain)) return true;
    const auto probe = manager.probe(domain);
    if (!probe || !messages.port(domain)) return false;
    // The news of a host's end may have come after those of the next host's start.
    manager.reconnect([](const auto&) {});
    return true;
}
} // namespace

void runCall(const CallPlaces& places, std::string_view operation, const JSON& arguments,
             std::shared_ptr<LineOutput> output) {
    Call call{places, arguments, std::move(output)};
    for (const CallRow& row : callRows()) {
        if (row.operation != operation) continue;
        if (row.needsHost && !hostMayAnswer(call)) return call.fail(serverUnreachable());
        return row.run(std::move(call));
    }
    call.fail(featureUnsupported());
}

} // namespace brindlemar
