// Something on its way between the host and here, for people who ask.
#pragma once

#include "platform/Progress.h"
#include "provider/replica/Row.h"

#include <memory>

namespace brindlemar {

struct Transfer {
    replica::Inode inode = 0;
    std::int64_t completed = 0, total = 0;
};

/// Without a progress it has not begun.
inline Transfer transferOf(replica::Inode inode, const std::shared_ptr<NSProgress>& progress) {
    constexpr std::int64_t percent = 100;
    return {inode, progress ? progress->completedUnitCount() : 0, percent};
}

} // namespace brindlemar
