// The log file: appended to, and moved aside when it is full.
#pragma once

#include "linux/FileDescriptor.h"
#include "linux/log/BatchedLog.h"

namespace brindlemar {

/// Used by one thread at a time. Several processes may write to one path: each notices before it writes that the file
/// was moved aside or removed and opens the new one, and only one of them moves it (flock(2)). What cannot be
/// rotated, a device for one, is just written to.
class RotatingFile : public LogOutput {
public:
    /// None when the file cannot be opened.
    static std::unique_ptr<RotatingFile> open(const RotatingLogFile& file);
    std::size_t write(std::string_view lines) override;

private:
    explicit RotatingFile(RotatingLogFile file) : file_(std::move(file)) {}
    bool reopen();
    bool isStillAtPath() const;
    /// How many bytes of the lines go into the file as it is; 0 when it must be rotated first.
    std::size_t amountFor(std::string_view lines) const;
    /// False when the file stays as it is.
    bool rotate();

    const RotatingLogFile file_;
    FileDescriptor descriptor_;
};

} // namespace brindlemar
