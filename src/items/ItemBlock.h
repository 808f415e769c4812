// Memory for the records of a listing: many records and their texts in one place.
#pragma once

#include "items/BrindlemarFileProviderItem.h"

namespace brindlemar {

/// A run of records and the texts that they borrow. Filled by one thread, then only read. Also the placer of texts for
/// the records made in it: the domain and the parent of neighbours are stored once, and a name that ends its
/// identifier is a view of it.
class ItemBlock {
public:
    explicit ItemBlock(std::size_t capacity) { records_.reserve(capacity); }

    bool isFull() const { return records_.size() == records_.capacity(); }
    BrindlemarFileProviderItem& add(const HostItemFields& fields, const BrindlemarFileProviderItem::Context& context,
                                    Timestamp now) {
        return records_.emplace_back(fields, context, now, *this);
    }

    ItemText shared(std::string_view text) {
        if (text != domain_) domain_ = put({text, {}, {}});
        return ItemText::borrowed(domain_);
    }
    ItemText sharedJoined(std::string_view a, std::string_view b, std::string_view c) {
        const bool same = parent_.size() == a.size() + b.size() + c.size() && parent_.starts_with(a) &&
                          parent_.ends_with(c) && parent_.substr(a.size(), b.size()) == b;
        if (!same) parent_ = put({a, b, c});
        return ItemText::borrowed(parent_);
    }
    ItemText joined(std::string_view a, std::string_view b, std::string_view c) {
        return ItemText::borrowed(put({a, b, c}));
    }
    ItemText within(std::string_view whole, std::string_view text) {
        return ItemText::borrowed(whole.ends_with(text) ? whole.substr(whole.size() - text.size())
                                                        : put({text, {}, {}}));
    }

private:
    static constexpr std::size_t kChunkSize = 16 * 1024;

    std::string_view put(const std::array<std::string_view, 3>& pieces) {
        std::size_t size = 0;
        for (const auto piece : pieces) size += piece.size();
        if (size > left_) {
            left_ = std::max(size, std::min(kChunkSize, 48 * records_.capacity()));
            chunks_.push_back(std::make_unique_for_overwrite<char[]>(left_));
            free_ = chunks_.back().get();
        }
        char* const start = free_;
        for (const auto piece : pieces) free_ = std::copy(piece.begin(), piece.end(), free_);
        left_ -= size;
        return {start, size};
    }

    std::vector<std::unique_ptr<char[]>> chunks_; // outlive the records
    char* free_ = nullptr;
    std::size_t left_ = 0;
    std::string_view domain_, parent_;
    std::vector<BrindlemarFileProviderItem> records_; // never grows past its capacity: records stay where they are
};

} // namespace brindlemar
