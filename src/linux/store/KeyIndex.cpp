#include "linux/store/KeyIndex.h"

#include <algorithm>
#include <array>

namespace brindlemar {

void KeyIndex::build(const KeyOf& keyOf) {
    std::vector<std::uint64_t> slots(count_ + count_ / 2 + 1);
    slots_.swap(slots);
    std::string key, other;
    // Hashes first, then the slots, so that the processor fetches several of them at a time.
    std::array<std::uint64_t, 16> hashes;
    for (std::size_t first = 0; first < count_; first += hashes.size()) {
        const std::size_t size = std::min(hashes.size(), count_ - first);
        for (std::size_t i = 0; i < size; ++i) {
            key.clear();
            keyOf(first + i, key);
            hashes[i] = hash(key);
            __builtin_prefetch(&slots_[firstPlace(hashes[i])], 1);
        }
        for (std::size_t i = 0; i < size; ++i) {
            const std::uint64_t slot = hashes[i] << 32 | (first + i + 1);
            std::size_t place = firstPlace(hashes[i]);
            const auto isSameKey = [&](std::uint64_t taken) {
                if (!isTag(taken, hashes[i])) return false;
                key.clear();
                other.clear();
                keyOf(first + i, key);
                keyOf(numberOf(taken), other);
                return key == other;
            };
            while (slots_[place] != 0 && !isSameKey(slots_[place])) place = nextPlace(place);
            slots_[place] = slot;
        }
    }
}

} // namespace brindlemar
