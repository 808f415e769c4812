// What programs have open.
#pragma once

#include "provider/mount/Contents.h"
#include "provider/replica/Row.h"
#include "support/Guarded.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace brindlemar {

/// One file, however many handles programs have on it. Thread-safe.
class OpenFile {
public:
    explicit OpenFile(replica::Row row) : atOpening(std::move(row)) {}

    replica::Inode inode() const { return atOpening.inode; }
    /// The contents, when they are local.
    std::shared_ptr<LocalFile> local() const { return local_.copy(); }
    void setChanged() {
        unsaved = true;
        changed = true;
    }
    void setLocal(std::shared_ptr<LocalFile> file) {
        local_.with([&](auto& local) { local.swap(file); });
    }

    const replica::Row atOpening;     // for what was removed meanwhile
    std::mutex saving;                // held while contents are made safe, or replaced
    std::atomic<bool> changed{false}; // written since a save began
    std::atomic<bool> unsaved{false}; // the replica does not know yet what was written
    std::atomic<bool> marked{false};  // the replica knows that writing has begun
    std::atomic<unsigned> writers{0}; // handles that may write

private:
    Guarded<std::shared_ptr<LocalFile>> local_;
};

/// Thread-safe.
class OpenFiles {
public:
    /// The file, from now on for as long as anybody holds it.
    std::shared_ptr<OpenFile> get(const replica::Row& row);
    /// None when nobody has it open.
    std::shared_ptr<OpenFile> find(replica::Inode inode) const;
    void each(const std::function<void(OpenFile&)>& body) const;
    /// Whoever has one open will not close it.
    void clear() {
        files_->with([](Files& files) { files.clear(); });
    }
    /// What was written to it is not safe yet, and not to be told.
    bool isUnsaved(replica::Inode inode) const {
        const auto file = find(inode);
        return file && file->writers > 0 && file->unsaved;
    }

private:
    using Files = std::unordered_map<replica::Inode, std::weak_ptr<OpenFile>>;
    const std::shared_ptr<Guarded<Files>> files_ = std::make_shared<Guarded<Files>>();
};

} // namespace brindlemar
