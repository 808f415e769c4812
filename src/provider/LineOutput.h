// Lines for a reader in another process, who may be slow, stop reading, or be gone.
#pragma once

#include "linux/FileDescriptor.h"
#include "support/Guarded.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string_view>
#include <vector>

namespace brindlemar {

/// Thread-safe. The descriptor is closed with the object, which tells the reader that nothing more comes.
class LineOutput {
public:
    static constexpr auto kPatience = std::chrono::seconds(60);

    /// Writes end early, and none begins, once `stopping` reads true.
    LineOutput(FileDescriptor output, const std::atomic<bool>& stopping,
               std::chrono::milliseconds patience = kPatience);

    /// Waits for the reader, at most `patience` without any progress, and a second only while 64 other readers in the
    /// process are waited for: each takes up a thread. False when the reader is gone or gave no sign for so long; then
    /// nothing is written any more.
    bool write(std::string_view line) { return write(line, patience_); }
    bool write(std::string_view line, std::chrono::milliseconds patience);
    bool isOpen() const { return !closed_; }

    int descriptor() const { return output_.get(); }
    /// Adds to what is done when the reader is found to be gone; at once if it is already.
    void onReaderGone(std::function<void()> handler);
    /// To be called by whoever finds out. Any thread; each handler runs once.
    void readerGone();

private:
    bool writeSome(std::string_view& bytes, std::chrono::milliseconds patience);

    FileDescriptor output_;
    const std::atomic<bool>& stopping_;
    const std::chrono::milliseconds patience_;
    std::mutex turn_; // whole lines
    std::atomic<bool> closed_{false};
    struct Gone {
        bool gone = false;
        std::vector<std::function<void()>> handlers;
    };
    Guarded<Gone> gone_;
};

} // namespace brindlemar
