// The machine's clock.
#pragma once

#include "platform/Clock.h"

namespace brindlemar {

class SystemClock final : public Clock {
public:
    Timestamp now() override;
    void sleep(std::chrono::nanoseconds duration) override;
};

} // namespace brindlemar
