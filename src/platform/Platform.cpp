#include "platform/Platform.h"

#include <cassert>
#include <memory>

namespace brindlemar {

namespace {
std::unique_ptr<const Platform>& installed() {
    static std::unique_ptr<const Platform> platform;
    return platform;
}
} // namespace

const Platform& Platform::current() {
    assert(installed() && "Platform::install comes first");
    return *installed();
}

void Platform::install(const Platform& platform) { installed() = std::make_unique<const Platform>(platform); }

} // namespace brindlemar
