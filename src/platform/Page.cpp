#include "platform/Enumerator.h"

#include <algorithm>

namespace brindlemar {

NSFileProviderPage::NSFileProviderPage(std::int64_t index) {
    const auto bits = static_cast<std::uint64_t>(index);
    for (int shift = 0; shift < 64; shift += 8) rawValue.push_back(static_cast<char>(bits >> shift));
}

std::int64_t NSFileProviderPage::toInt64() const {
    if (rawValue == NSFileProviderInitialPageSortedByName || rawValue == NSFileProviderInitialPageSortedByDate)
        return 0;
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(rawValue.size(), 8); ++i)
        bits |= std::uint64_t{static_cast<unsigned char>(rawValue[i])} << (8 * i);
    return static_cast<std::int64_t>(bits);
}

} // namespace brindlemar
