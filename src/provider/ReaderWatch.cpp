#include "provider/ReaderWatch.h"

#include "linux/queues/QuietThread.h"

#include <sys/epoll.h>

#include <cerrno>
#include <system_error>

namespace brindlemar {

namespace {
constexpr ReaderWatch::Token kWake = 0;

bool watch(int epoll, int descriptor, std::uint32_t events, ReaderWatch::Token token) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = token;
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}
} // namespace

ReaderWatch::ReaderWatch() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
    if (!epoll_ || !watch(epoll_.get(), wake_.descriptor(), EPOLLIN, kWake))
        throw std::system_error(errno, std::generic_category(), "The watch over readers");
    thread_ = startQuietThread([this] { run(); });
}

ReaderWatch::~ReaderWatch() { stop(); }

void ReaderWatch::stop() {
    wake_.stop();
    if (thread_.joinable()) thread_.join();
}

ReaderWatch::Token ReaderWatch::add(int descriptor, std::function<void()> gone) {
    const Token token = callbacks_.with([&](Callbacks& callbacks) {
        callbacks.byToken[++callbacks.last] = std::move(gone);
        return callbacks.last;
    });
    watch(epoll_.get(), descriptor, EPOLLONESHOT, token); // errors and hang-ups are reported always
    return token;
}

void ReaderWatch::remove(Token token) {
    const auto dropped = callbacks_.with([&](Callbacks& callbacks) { return callbacks.byToken.extract(token); });
}

void ReaderWatch::run() {
    epoll_event events[16];
    while (!wake_.stopped()) {
        const int count = ::epoll_wait(epoll_.get(), events, std::size(events), -1);
        for (int i = 0; i < count; ++i) {
            const auto entry =
                callbacks_.with([&](Callbacks& callbacks) { return callbacks.byToken.extract(events[i].data.u64); });
            if (entry) entry.mapped()();
        }
    }
}

} // namespace brindlemar
