// Gives contents that the host does not have their place again, when nothing else is known of them any more.
#pragma once

#include "provider/mount/Contents.h"
#include "provider/mount/Folders.h"

#include <atomic>
#include <vector>

namespace brindlemar {

/// The folders that the contents belong to are listed one in the other, as hosts come; what is still without a place
/// waits, as a file. Thread-safe.
class Rescue : public std::enable_shared_from_this<Rescue> {
public:
    /// All of them outlive the last task.
    struct Places {
        replica::Replica& replica;
        Contents& contents;
        KernelNotices& notices;
        std::shared_ptr<Folders> folders;
    };
    explicit Rescue(const Places& places) : places_(places) {}

    void add(std::string contents, UnsentNote note);
    /// Everything that was added has its place.
    bool isDone() const { return missing_ == 0; }
    /// A host may be there by now. `rescued` is called for each item that has its contents again.
    void look(const std::function<void(replica::Inode)>& rescued);

private:
    struct Lost {
        std::string contents;
        UnsentNote note;
        std::function<void(replica::Inode)> rescued;
    };
    void seek(const Lost& lost, replica::Inode folder, std::size_t from);
    std::string freeName(replica::Inode folder, const std::string& wanted);
    void settle(const Lost& lost, replica::Inode folder, const std::string& name);
    void wait(const Lost& lost);

    const Places places_;
    Guarded<std::vector<Lost>> lost_;
    std::atomic<int> missing_{0};
};

} // namespace brindlemar
