// Fetches contents, once for all who wait for them.
#pragma once

#include "provider/FetchedFiles.h"
#include "provider/mount/Contents.h"
#include "provider/mount/Folders.h"
#include "provider/mount/OpenFiles.h"
#include "provider/mount/Transfer.h"

#include <list>

namespace brindlemar {

/// Thread-safe.
class Downloads : public std::enable_shared_from_this<Downloads> {
public:
    /// All of them outlive the last task.
    struct Places {
        Folders::Places common;
        std::shared_ptr<Folders> folders;
        FetchedFiles& fetched;
        Contents& contents;
        OpenFiles& open;
    };
    explicit Downloads(const Places& places) : places_(places) {}

    /// Called once, unless it is taken back: the contents are local, or why they are not.
    using Handler = std::function<void(const std::optional<NSError>& error)>;
    using Token = std::uint64_t;
    Token want(replica::Inode inode, Handler handler);
    /// Nobody waits any more: a fetch that is for nobody else is cancelled, which the host may not heed. False when the
    /// handler is or was called.
    bool unwant(replica::Inode inode, Token token);

    std::vector<Transfer> transfers() const;
    std::optional<Transfer> transfer(replica::Inode inode) const;

private:
    struct Download {
        std::list<std::pair<Token, Handler>> waiting;
        std::shared_ptr<NSProgress> progress;
        int tries = 0;
    };
    struct State {
        Token last = 0;
        std::unordered_map<replica::Inode, Download> downloads;
    };
    void start(replica::Inode inode, bool mayIdentify);
    void fetch(replica::Inode inode, bool mayIdentify);
    void arrived(replica::Inode inode, const std::string& identifier, const FileURL& file,
                 const NSFileProviderItem* item);
    bool triesAgain(replica::Inode inode, const std::string& identifier);
    void failed(replica::Inode inode, const std::string& identifier, const NSError& error);
    void missed(replica::Inode inode, const std::string& identifier, NSError error);
    void ended(replica::Inode inode, const std::optional<NSError>& error);

    const Places places_;
    Guarded<State> state_;
};

} // namespace brindlemar
