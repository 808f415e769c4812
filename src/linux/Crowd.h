// Who has to go when there are too many connections.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <map>
#include <utility>

namespace brindlemar {

/// Of the process that has the most connections in the range, the one with the least standing: a process that makes
/// connections without end drives out its own and nobody else's. `end` for an empty range.
template <class Iterator, class Process, class Standing>
Iterator lastOfTheCrowd(Iterator begin, Iterator end, Process processOf, Standing standingOf) {
    std::map<pid_t, int> crowds;
    for (Iterator each = begin; each != end; ++each) ++crowds[processOf(*each)];
    const auto rank = [&](const auto& each) { return std::pair(-crowds[processOf(each)], standingOf(each)); };
    return std::min_element(begin, end, [&](const auto& one, const auto& other) { return rank(one) < rank(other); });
}

} // namespace brindlemar
