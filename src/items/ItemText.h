// The texts of item records: 16 bytes each, owned or borrowed.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

namespace brindlemar {

/// A text that owns its bytes, or borrows them from something that outlives it: a literal, or the block of a listing
/// that the record lies in. A copy always owns.
class ItemText {
public:
    ItemText() = default;
    ItemText(std::string_view text) : data_(duplicate(text)), size_(text.size()), owned_(!text.empty()) {}
    ItemText(const char* text) : ItemText(std::string_view(text)) {}
    static ItemText borrowed(std::string_view text) {
        ItemText result;
        result.data_ = text.data();
        result.size_ = text.size();
        return result;
    }
    ItemText(const ItemText& other) : ItemText(other.view()) {}
    ItemText(ItemText&& other) noexcept { swap(other); }
    ItemText& operator=(ItemText other) noexcept {
        swap(other);
        return *this;
    }
    ~ItemText() {
        if (owned_) delete[] data_;
    }

    std::string_view view() const { return {data_, size_}; }
    operator std::string_view() const { return view(); }

private:
    static const char* duplicate(std::string_view text) {
        if (text.empty()) return nullptr;
        char* copy = new char[text.size()];
        std::memcpy(copy, text.data(), text.size());
        return copy;
    }
    void swap(ItemText& other) noexcept {
        std::swap(data_, other.data_);
        const std::size_t size = size_, owned = owned_;
        size_ = other.size_, owned_ = other.owned_;
        other.size_ = size, other.owned_ = owned;
    }

    const char* data_ = nullptr;
    std::size_t size_ : 63 = 0;
    std::size_t owned_ : 1 = 0;
};

} // namespace brindlemar
