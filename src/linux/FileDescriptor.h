// Ownership of one descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace brindlemar {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    int get() const { return descriptor_; }
    void reset() { FileDescriptor closing = std::move(*this); }
    int release() { return std::exchange(descriptor_, -1); }
    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

} // namespace brindlemar
