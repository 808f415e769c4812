#include "platform/Platform.h"

#include <memory>
#include <stdexcept>

namespace brindlemar {

namespace {
std::unique_ptr<const Platform>& installed() {
    static std::unique_ptr<const Platform> platform;
    return platform;
}
} // namespace

const Platform& Platform::current() {
    if (!installed()) throw std::logic_error("brindlemar::Platform::install() comes first");
    return *installed();
}

Timestamp Platform::now() {
    if (installed()) return installed()->clock.now();
    return std::chrono::time_point_cast<Timestamp::duration>(std::chrono::system_clock::now());
}

void Platform::install(const Platform& platform) { installed() = std::make_unique<const Platform>(platform); }

} // namespace brindlemar
