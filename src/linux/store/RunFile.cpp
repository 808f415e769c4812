#include "linux/store/RunFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {

constexpr std::uint64_t kBlock = 4096; // space is given back in blocks
constexpr std::size_t kBufferSize = 256 * 1024;

struct Head {
    std::uint64_t sequence;
    std::int64_t expiry;
    std::uint32_t keySize;
    std::uint32_t hasValue;
};

} // namespace

std::shared_ptr<RunFile> RunFile::create(const std::string& path) {
    ::unlink(path.c_str()); // whoever still uses the old file keeps it to itself
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) return nullptr;
    return std::shared_ptr<RunFile>(new RunFile(path, std::move(file)));
}

RunFile::~RunFile() {
    struct stat ours {
    }, there{};
    const bool isOurs = ::fstat(descriptor_.get(), &ours) == 0 && ::lstat(path_.c_str(), &there) == 0 &&
                        ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
    if (isOurs) ::unlink(path_.c_str());
}

std::uint64_t RunFile::used() const {
    return space_.with([](const Space& space) { return space.used; });
}

std::uint64_t RunFile::begin() {
    return space_.with([](Space& space) {
        ++space.runs;
        return space.end = (space.end + kBlock - 1) / kBlock * kBlock;
    });
}

void RunFile::resize(std::uint64_t start, std::uint64_t size, std::uint64_t newSize) {
    space_.with([=](Space& space) {
        space.used += newSize - size;
        space.end = start + newSize;
    });
}

void RunFile::release(std::uint64_t start, std::uint64_t size) {
    // Under the lock, for the freed place may be the next run's.
    space_.with([&](Space& space) {
        constexpr int kPunch = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
        space.used -= size;
        if (--space.runs == 0 && ::ftruncate(descriptor_.get(), 0) == 0) {
            space.end = 0;
        } else if (size > 0) {
            static_cast<void>(
                ::fallocate(descriptor_.get(), kPunch, static_cast<off_t>(start), static_cast<off_t>(size)));
        }
    });
}

bool RunFile::write(std::string_view bytes, std::uint64_t place) const {
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(descriptor_.get(), bytes.data(), bytes.size(), static_cast<off_t>(place));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
        place += static_cast<std::uint64_t>(count);
    }
    return true;
}

bool RunFile::read(char* bytes, std::size_t count, std::uint64_t place) const {
    while (count > 0) {
        const ssize_t got = ::pread(descriptor_.get(), bytes, count, static_cast<off_t>(place));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        bytes += got;
        count -= static_cast<std::size_t>(got);
        place += static_cast<std::uint64_t>(got);
    }
    return true;
}

DiskRun::DiskRun(std::shared_ptr<RunFile> file, std::size_t count)
    : file_(std::move(file)), count_(count), start_(file_->begin()), size_(0) {}

std::optional<DiskRecord> DiskRun::read(std::size_t number) const {
    if (number >= count_) return std::nullopt;
    // The table holds where each record ends, relative to the run; the first begins behind the table.
    std::array<std::uint64_t, 2> ends{count_ * sizeof(std::uint64_t), 0};
    const std::size_t first = number == 0 ? 1 : 0;
    const std::uint64_t place = start_ + (number - 1 + first) * sizeof(std::uint64_t);
    if (!file_->read(reinterpret_cast<char*>(&ends[first]), (2 - first) * sizeof(std::uint64_t), place))
        return std::nullopt;
    Head head;
    if (ends[1] > size_ || ends[1] < ends[0] + sizeof head) return std::nullopt;
    std::string bytes(ends[1] - ends[0], '\0');
    if (!file_->read(bytes.data(), bytes.size(), start_ + ends[0])) return std::nullopt;
    std::memcpy(&head, bytes.data(), sizeof head);
    if (head.keySize > bytes.size() - sizeof head) return std::nullopt;
    DiskRecord record{head.sequence, Timestamp(std::chrono::nanoseconds(head.expiry)),
                      bytes.substr(sizeof head, head.keySize), std::nullopt};
    if (head.hasValue) {
        bytes.erase(0, sizeof head + head.keySize);
        record.value = std::move(bytes);
    }
    return record;
}

RunWriter::RunWriter(std::shared_ptr<RunFile> file, std::size_t count)
    : run_(file ? new DiskRun(std::move(file), count) : nullptr), failed_(!run_) {
    if (run_) {
        run_->size_ = count * sizeof(std::uint64_t);
        run_->file_->resize(run_->start_, 0, run_->size_);
    }
}

void RunWriter::add(const DiskRecord& head, const Encode& encode, std::size_t largest) {
    if (failed_) return;
    const std::size_t start = records_.size();
    Head fixed{head.sequence, head.expiry.time_since_epoch().count(), static_cast<std::uint32_t>(head.key.size()),
               encode != nullptr};
    records_.append(reinterpret_cast<const char*>(&fixed), sizeof fixed).append(head.key);
    const std::size_t valueStart = records_.size();
    if (encode) encode(records_);
    if (records_.size() - valueStart > largest) {
        fixed.hasValue = 0;
        records_.resize(valueStart);
        std::memcpy(records_.data() + start, &fixed, sizeof fixed);
    }
    ends_.push_back(run_->size_ + records_.size());
    if (records_.size() >= kBufferSize) flush();
}

bool RunWriter::flush() {
    if (failed_ || ends_.empty()) return !failed_;
    const std::string_view table(reinterpret_cast<const char*>(ends_.data()), ends_.size() * sizeof(std::uint64_t));
    failed_ = !run_->file_->write(records_, run_->start_ + run_->size_) ||
              !run_->file_->write(table, run_->start_ + written_ * sizeof(std::uint64_t));
    run_->file_->resize(run_->start_, run_->size_, run_->size_ + records_.size());
    run_->size_ += records_.size();
    written_ += ends_.size();
    ends_.clear();
    records_.clear();
    if (records_.capacity() > 4 * kBufferSize) records_.shrink_to_fit();
    return !failed_;
}

std::shared_ptr<const DiskRun> RunWriter::finish() {
    if (!flush() || written_ != run_->count_) return nullptr;
    return std::move(run_);
}

} // namespace brindlemar
