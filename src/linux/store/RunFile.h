// The disk side of a store: runs of records, written once, read by number, given back as a whole.
#pragma once

#include "linux/FileDescriptor.h"
#include "platform/Timestamp.h"
#include "support/Guarded.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brindlemar {

/// A file that grows at its end. What a run that goes away leaves is given back to the file system (fallocate(2)), and
/// when the last one goes the file is empty again. Nothing in it outlives the process: there is no journal and no sync,
/// and the file is removed with the last reference to it. Thread-safe, but runs are written one after the other.
class RunFile {
public:
    /// A new file in place of whatever lies at the path; none when it cannot be made.
    static std::shared_ptr<RunFile> create(const std::string& path);
    ~RunFile();

    /// Bytes in runs.
    std::uint64_t used() const;

private:
    friend class DiskRun;
    friend class RunWriter;
    struct Space {
        std::uint64_t end = 0, used = 0;
        std::size_t runs = 0;
    };
    RunFile(std::string path, FileDescriptor descriptor) : path_(std::move(path)), descriptor_(std::move(descriptor)) {}
    std::uint64_t begin();
    void resize(std::uint64_t start, std::uint64_t size, std::uint64_t newSize);
    void release(std::uint64_t start, std::uint64_t size);
    bool write(std::string_view bytes, std::uint64_t place) const;
    bool read(char* bytes, std::size_t count, std::uint64_t place) const;

    const std::string path_;
    const FileDescriptor descriptor_;
    Guarded<Space> space_;
};

struct DiskRecord {
    std::uint64_t sequence = 0;
    Timestamp expiry{};
    std::string key{};
    std::optional<std::string> value{}; // none: the key was written, but its value is not here
};

/// A finished run. Its space is given back when it is destroyed.
class DiskRun {
public:
    ~DiskRun() { file_->release(start_, size_); }
    /// None when it cannot be read.
    std::optional<DiskRecord> read(std::size_t number) const;
    std::uint64_t size() const { return size_; }

private:
    friend class RunWriter;
    DiskRun(std::shared_ptr<RunFile> file, std::size_t count);
    const std::shared_ptr<RunFile> file_;
    const std::size_t count_;
    const std::uint64_t start_;
    std::uint64_t size_;
};

/// Writes one run of a known number of records: first a table of their places, then the records.
class RunWriter {
public:
    using Encode = std::function<void(std::string& appendTo)>;

    RunWriter(std::shared_ptr<RunFile> file, std::size_t count);
    /// Without `encode`, or when it gives more bytes than `largest`, the record has no value.
    void add(const DiskRecord& head, const Encode& encode, std::size_t largest);
    /// Hands all so far to the operating system. False when that failed, now or before.
    bool flush();
    /// The run, when all of its records are there; none on failure.
    std::shared_ptr<const DiskRun> finish();

private:
    std::shared_ptr<DiskRun> run_;
    std::string records_;
    std::vector<std::uint64_t> ends_;
    std::size_t written_ = 0; // records
    bool failed_ = false;
};

} // namespace brindlemar
