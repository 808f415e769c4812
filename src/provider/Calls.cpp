#include "provider/Calls.h"

#include "provider/CallRows.h"
#include "provider/EventText.h"
#include "provider/HostGate.h"
#include "provider/mount/Failures.h"

#include <array>
#include <charconv>

namespace brindlemar {

std::span<const CallRow> callRows() {
    static constexpr std::array rows{
        CallRow{"item", callItem},
        CallRow{"delete", callDelete},
        CallRow{"fetch", callFetch},
        CallRow{"create", callCreate},
        CallRow{"modify", callModify},
        CallRow{"list", callList},
        CallRow{"browse", callBrowse},
        CallRow{"changes", callChanges},
        CallRow{"anchor", callAnchor, false},
        CallRow{"watch", callWatch, false},
        CallRow{"admin", callAdmin},
        CallRow{"search", callSearch},
        CallRow{"path", callPath},
        CallRow{"forget", callForget, false},
        CallRow{"evict", callEvict, false},
        CallRow{"bring", callBring, false},
        CallRow{"retry", callRetry, false},
        CallRow{"unmount", callUnmount, false},
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

void Call::fail(const NSError& error, std::string_view text) const {
    output->write(completionEvent(nullptr, error, text));
}

void Call::guarded(const std::function<void(Call call)>& run) const {
    if (const auto error = attempt("guarded(_:)", [&] { run(*this); })) fail(*error);
}

void runCall(const CallPlaces& places, std::string_view operation, const JSON& arguments,
             std::shared_ptr<LineOutput> output) {
    Call call{places, arguments, std::move(output)};
    for (const CallRow& row : callRows()) {
        if (row.operation != operation) continue;
        if (row.needsHost && !hostMayAnswer(call.places.manager, call.domain())) return call.fail(serverUnreachable());
        return call.guarded(row.run);
    }
    call.fail(featureUnsupported());
}

} // namespace brindlemar
