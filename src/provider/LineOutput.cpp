#include "provider/LineOutput.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace brindlemar {

namespace {
constexpr std::chrono::milliseconds kLook{100}; // how often a waiting write looks whether it should stop
constexpr std::chrono::milliseconds kHurry{1000};
constexpr int kMostWaiting = 64;
std::atomic<int> waiting{0};

/// A write under way.
struct Waiting {
    Waiting() : isOneOfMany(++waiting > kMostWaiting) {}
    ~Waiting() { --waiting; }
    const bool isOneOfMany;
};
} // namespace

LineOutput::LineOutput(FileDescriptor output, const std::atomic<bool>& stopping, std::chrono::milliseconds patience)
    : output_(std::move(output)), stopping_(stopping), patience_(patience) {
    ::fcntl(output_.get(), F_SETFL, ::fcntl(output_.get(), F_GETFL) | O_NONBLOCK);
}

bool LineOutput::write(std::string_view line, std::chrono::milliseconds patience) {
    std::string text(line);
    text += '\n';
    std::lock_guard turn(turn_);
    for (std::string_view rest = text; !rest.empty() && !closed_;) closed_ = !writeSome(rest, patience);
    return !closed_;
}

void LineOutput::onReaderGone(std::function<void()> handler) {
    const bool already = gone_.with([&](Gone& gone) {
        if (!gone.gone) gone.handlers.push_back(std::move(handler));
        return gone.gone;
    });
    if (already) handler();
}

void LineOutput::readerGone() {
    closed_ = true;
    const auto handlers = gone_.with([](Gone& gone) {
        gone.gone = true;
        return std::exchange(gone.handlers, {});
    });
    for (const auto& handler : handlers) handler();
    std::lock_guard turn(turn_);
    output_.reset();
}

/// False when the reader is lost.
bool LineOutput::writeSome(std::string_view& bytes, std::chrono::milliseconds patience) {
    const Waiting write;
    const auto deadline =
        std::chrono::steady_clock::now() + (write.isOneOfMany ? std::min(patience, kHurry) : patience);
    while (!stopping_ && std::chrono::steady_clock::now() < deadline) {
        const ssize_t written = ::write(output_.get(), bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            return true;
        }
        if (written == 0 || (errno != EAGAIN && errno != EINTR)) return false;
        pollfd writable{output_.get(), POLLOUT, 0};
        if (::poll(&writable, 1, static_cast<int>(kLook.count())) > 0 && !(writable.revents & POLLOUT)) return false;
    }
    return false;
}

} // namespace brindlemar
