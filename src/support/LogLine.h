// A line under construction.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace brindlemar {

/// Grows at its end; short lines need no memory but their own. For one thread.
class LogLine {
public:
    LogLine() = default;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    LogLine& append(std::string_view text) {
        if (!text.empty()) std::memcpy(extend(text.size()), text.data(), text.size());
        return *this;
    }
    LogLine& append(char c) {
        *extend(1) = c;
        return *this;
    }
    LogLine& appendDecimal(std::uint64_t number) {
        char digits[20];
        const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        return append(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }
    /// Makes the line longer; the caller fills the new bytes.
    char* extend(std::size_t count) {
        if (count > capacity_ - size_) grow(count);
        return data_ + std::exchange(size_, size_ + count);
    }
    void truncate(std::size_t size) { size_ = size; }
    std::size_t size() const { return size_; }
    std::string_view text() const { return {data_, size_}; }

private:
    void grow(std::size_t count) {
        const std::size_t capacity = std::max(2 * capacity_, size_ + count);
        auto larger = std::make_unique_for_overwrite<char[]>(capacity);
        std::memcpy(larger.get(), data_, size_);
        heap_ = std::move(larger);
        data_ = heap_.get();
        capacity_ = capacity;
    }

    std::array<char, 1000> own_;
    std::unique_ptr<char[]> heap_;
    char* data_ = own_.data();
    std::size_t size_ = 0;
    std::size_t capacity_ = own_.size();
};

} // namespace brindlemar
