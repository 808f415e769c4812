#include "provider/ServiceFiles.h"

#include "messaging/BxMessages.h"

namespace brindlemar {

namespace {
thread_local const CopiesForCall* call = nullptr;
}

CopiesForCall::CopiesForCall(std::function<bool()> isWanted, std::string domain)
    : isWanted_(std::move(isWanted)), domain_(std::move(domain)),
      wasReachable_(BxMessages::sharedInstance().isReachable(domain_)) {
    call = this;
}

CopiesForCall::~CopiesForCall() { call = nullptr; }

std::optional<NSError> CopiesForCall::ended() const {
    if (!isWanted_()) return userCancelled();
    if (wasReachable_ && !BxMessages::sharedInstance().isReachable(domain_)) return serverUnreachable();
    return std::nullopt;
}

std::optional<NSError> ServiceFiles::copyItem(const FileURL& at, const FileURL& to) {
    std::optional<NSError> ended;
    const auto error = copyFile(at, to, [&](std::uint64_t, std::uint64_t) {
        if (call) ended = call->ended();
        return !ended;
    });
    if (!error && call) ended = call->ended(); // as long as the last piece took
    if (!error && ended) LinuxFiles::removeItem(to);
    return ended ? ended : error;
}

std::variant<std::vector<FileURL>, NSError> ServiceFiles::contentsOfDirectory(const FileURL& at) {
    if (auto entries = registry_.entriesOf(at)) return std::move(*entries);
    return LinuxFiles::contentsOfDirectory(at);
}

} // namespace brindlemar
