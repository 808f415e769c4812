// Finds one of many keys without keeping the keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brindlemar {

/// Numbers of keys by their hashes: open addressing, 12 bytes a key. Where keys repeat the last one counts. Built once,
/// then only read; thread-safe.
class KeyIndex {
public:
    /// Appends the key with this number.
    using KeyOf = std::function<void(std::size_t number, std::string& key)>;

    explicit KeyIndex(std::size_t count) : count_(count) {}
    /// The first caller builds the index, others wait until it is there.
    void buildOnce(const KeyOf& keyOf) {
        std::call_once(built_, [&] { build(keyOf); });
    }

    static std::uint64_t hash(std::string_view key) { return std::hash<std::string_view>()(key); }

    /// The number of the key with this hash that `isKey(number)` confirms; almost every question to it is a yes. For an
    /// index that has been built.
    template <class IsKey>
    std::optional<std::size_t> find(std::uint64_t hash, IsKey&& isKey) const {
        if (slots_.empty()) return std::nullopt;
        for (std::size_t place = firstPlace(hash);; place = nextPlace(place)) {
            const std::uint64_t slot = slots_[place];
            if (slot == 0) return std::nullopt;
            if (isTag(slot, hash) && isKey(numberOf(slot))) return numberOf(slot);
        }
    }

private:
    // A slot is the low half of the hash above the number plus one; 0 is empty.
    static bool isTag(std::uint64_t slot, std::uint64_t hash) { return ((slot >> 32) ^ hash) << 32 == 0; }
    static std::size_t numberOf(std::uint64_t slot) { return static_cast<std::uint32_t>(slot) - 1; }
    std::size_t firstPlace(std::uint64_t hash) const { return ((hash >> 32) * slots_.size()) >> 32; }
    std::size_t nextPlace(std::size_t place) const { return place + 1 == slots_.size() ? 0 : place + 1; }
    void build(const KeyOf& keyOf);

    const std::size_t count_;
    std::once_flag built_;
    std::vector<std::uint64_t> slots_;
};

} // namespace brindlemar
