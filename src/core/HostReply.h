// What the answers to fetches and uploads have in common.
#pragma once

#include "support/JSON.h"

#include <algorithm>
#include <optional>

namespace brindlemar {

/// The percentage of a progress report, held between 0 and 100; none when there is none, so that nobody's bar moves.
inline std::optional<std::int64_t> progressPercentage(const JSON& reply) {
    const auto number = reply["progressPercentage"].number();
    if (!number) return std::nullopt;
    return std::clamp<std::int64_t>(number->int64Value(), 0, 100);
}

inline bool isProgressReport(const JSON& reply) { return reply["status"].string() == "progress"; }

} // namespace brindlemar
