#include "linux/Wake.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace brindlemar {

Wake::Wake() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Wake::signal() {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the waiter is woken anyway.
    [[maybe_unused]] const auto written = ::write(event_.get(), &one, sizeof one);
}

void Wake::stop() {
    stopped_ = true;
    signal();
}

void Wake::drain() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(event_.get(), &count, sizeof count);
}

} // namespace brindlemar
