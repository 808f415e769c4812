#include "provider/mount/Folders.h"

#include "items/ItemIdentifiers.h"
#include "messaging/BxMessages.h"
#include "provider/ChangeFeed.h"
#include "provider/mount/Failures.h"

namespace brindlemar {

namespace {
constexpr std::int64_t kFirstPage = 200, kFurtherPages = 5000; // the first is for people, who wait
constexpr std::size_t kMany = 1000;
} // namespace

/// One listing on its way through its pages.
class FolderListing final : public NSFileProviderEnumerationObserver,
                            public std::enable_shared_from_this<FolderListing> {
public:
    FolderListing(std::shared_ptr<Folders> folders, replica::Inode folder, ItemIdentifier identifier,
                  std::string connection, std::shared_ptr<NSFileProviderEnumerator> enumerator)
        : folders_(std::move(folders)), folder_(folder), identifier_(std::move(identifier)),
          connection_(std::move(connection)), enumerator_(std::move(enumerator)),
          since_(folders_->places_.manager.state().since), began_(folders_->places_.clock.now()) {}

    void start() { ask(NSFileProviderPage(std::string(NSFileProviderInitialPageSortedByName))); }
    std::int64_t suggestedPageSize() const override { return pageSize_; }
    void didEnumerateItems(ItemBatch items) override {
        isEmpty_ = false;
        const auto failure = attempt("didEnumerateItems(_:)", [&] {
            folders_->places_.notices.tell(
                folders_->places_.replica.merge(folder_, identifier_, items.items(), began_));
        });
        if (failure) failure_.with([&](auto& first) { first = failure; });
    }
    void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> page) override {
        if (const auto error = attempt("finish(_:)", [&] { finish(std::move(page)); })) folders_->ended(folder_, error);
    }

private:
    void finish(std::optional<NSFileProviderPage> page) {
        pageSize_ = kFurtherPages;
        if (page) {
            folders_->advanced(folder_);
            return ask(std::move(*page));
        }
        // Without a host a listing is empty; that does not mean that the folder is.
        const bool isHere = connection_.empty() || (BxMessages::sharedInstance().isReachable(connection_) &&
                                                    folders_->places_.manager.state().since == since_);
        const bool isAnswer = isHere && (connection_.empty() || !isEmpty_ || folders_->mayBeEmpty(folder_));
        if (!isHere) folders_->unanswered(folder_);
        if (isHere && !isAnswer)
            folders_->places_.tasks.after(
                OpenFolders::kFresh, [folders = folders_] { orLog("finish(_:)", [&] { folders->identifyAll(); }); });
        if (!folders_->isStill(folder_, identifier_))
            return folders_->start(folder_); // renamed: all its identifiers differ
        const auto failure = failure_.copy();
        if (failure || !isAnswer) return folders_->ended(folder_, failure.value_or(serverUnreachable()));
        folders_->completed(folder_, identifier_, began_);
    }
    void ask(NSFileProviderPage page) {
        folders_->places_.tasks.async(
            [self = shared_from_this(), page = std::move(page)] { self->enumerator_->enumerateItems(self, page); });
    }
    const std::shared_ptr<Folders> folders_;
    const replica::Inode folder_;
    const ItemIdentifier identifier_;
    const std::string connection_;
    const std::shared_ptr<NSFileProviderEnumerator> enumerator_;
    const Timestamp since_, began_;
    std::atomic<std::int64_t> pageSize_{kFirstPage};
    std::atomic<bool> isEmpty_{true};
    Guarded<std::optional<NSError>> failure_; // of what has arrived
};

void Folders::list(replica::Inode folder, Handler handler) {
    const bool isAway = folder != replica::kRoot && !places_.manager.isConnected(); // who looks for it may take a while
    const bool isFirst = listings_.with([&](auto& listings) {
        const auto [entry, made] = listings.try_emplace(folder);
        if (handler && (made || !isAway)) entry->second.waiting.push_back(std::exchange(handler, nullptr));
        return made;
    });
    if (isFirst) return places_.tasks.async([self = shared_from_this(), folder] { self->start(folder); });
    if (handler) places_.tasks.async([handler = std::move(handler)] { handler(false, serverUnreachable()); });
}

void Folders::refresh(replica::Inode folder) {
    const Timestamp now = places_.clock.now();
    const bool isDue = checked_.with([&](auto& checked) {
        const auto entry = checked.find(folder);
        return entry == checked.end() || !isWithin(OpenFolders::kFresh, entry->second.began, now);
    });
    if (isDue && places_.manager.isConnected()) list(folder, nullptr);
}

void Folders::identify(const replica::Row& item, std::function<void(const std::optional<NSError>& error)> known) {
    list(item.hostParent ? item.hostParent : item.parent,
         [self = shared_from_this(), item, known = std::move(known)](bool more, const auto& error) {
             const auto now = self->places_.replica.row(item.inode);
             if (now && now->identifier) return known(std::nullopt);
             if (more) return self->identify(item, known);
             known(error.value_or(noSuchItem()));
         });
}

void Folders::walk(replica::Inode at, const std::string& path, bool isListed, const Found& found) {
    std::optional<replica::Row> row, entry;
    const std::size_t end = std::min(path.find('/'), path.size());
    const auto failure = attempt("walk(_:)", [&] {
        row = places_.replica.row(at);
        if (row && end > 0) entry = places_.replica.child(at, std::string_view(path).substr(0, end));
    });
    if (failure) return found(std::nullopt, failure);
    if (row && path.empty()) return found(row, std::nullopt);
    if (entry) return walk(entry->inode, path.substr(std::min(end + 1, path.size())), false, found);
    if (!row || !row->folder || isListed) return found(std::nullopt, noSuchItem());
    list(at, [self = shared_from_this(), at, path, found](bool more, const auto& error) {
        return error ? found(std::nullopt, error) : self->walk(at, path, !more, found);
    });
}

void Folders::identifyAll() {
    for (const replica::Inode folder : places_.replica.foldersToIdentify()) list(folder, nullptr);
}

void Folders::start(replica::Inode folder) {
    if (const auto error = attempt("start(_:)", [&] { open(folder); })) ended(folder, error);
}

void Folders::open(replica::Inode folder) {
    const auto row = places_.replica.row(folder);
    if (!row) return ended(folder, cocoaError(CocoaErrorCode::fileReadNoSuchFile));
    if (const auto stale = places_.replica.outermostNameless(folder))
        return identify(*stale, [self = shared_from_this(), folder](const auto& error) {
            return error ? self->ended(folder, error) : self->start(folder);
        });
    if (row->identifier) return enumerate(folder, *row);
    if (row->pending.creation) return ended(folder, std::nullopt); // all of it is here
    identify(*row, [self = shared_from_this(), folder](const auto& error) {
        const auto now = self->places_.replica.row(folder);
        if (!error && now && now->identifier) return self->enumerate(folder, *now);
        self->ended(folder, error.value_or(noSuchItem()));
    });
}

void Folders::enumerate(replica::Inode folder, const replica::Row& row) {
    const std::string connection(resolveIdentifier(*row.identifier).domain);
    const bool isRoot = folder == replica::kRoot;
    if (!isRoot && !places_.hostIsExpected(connection)) return ended(folder, serverUnreachable());
    const Timestamp now = places_.clock.now(), from = askableFrom(folder, *row.identifier, now);
    if (now < from)
        return places_.tasks.after(from - now, [self = shared_from_this(), folder] { self->start(folder); });
    auto opened = places_.folders.open(*places_.extension, *row.identifier);
    if (const auto* error = std::get_if<NSError>(&opened)) return ended(folder, *error);
    const auto& [enumerator, stale] = std::get<OpenFolders::Opened>(opened);
    checked_.with([&](auto& checked) {
        if (checked.size() > kMany)
            std::erase_if(checked, [&](const auto& each) {
                const Check& last = each.second;
                return !isWithin(OpenFolders::kFresh, std::max({last.began, last.completed, last.unanswered}), now);
            });
        Check& last = checked[folder];
        last = {.began = now, .unanswered = last.unanswered};
    });
    const auto listing = std::make_shared<FolderListing>(shared_from_this(), folder, *row.identifier,
                                                         isRoot ? "" : connection, enumerator);
    // While its name is changing on the host, what had the old one is told as gone.
    if (!stale || isRoot || places_.replica.isMoving(folder)) return listing->start();
    enumerator->enumerateChanges(
        std::make_shared<ChangeCollector>([self = shared_from_this(), listing](const ChangeSet& changes) {
            orLog("enumerate(_:)", [&] {
                self->places_.notices.tell(self->places_.replica.remove(changes.deleted, self->places_.clock.now()));
            });
            listing->start();
        }),
        NSFileProviderSyncAnchor());
}

/// Where identifiers are paths, another folder may have had this one a moment ago, whose listing the extension would
/// give once more; or this one, with less in it.
Timestamp Folders::askableFrom(replica::Inode folder, const ItemIdentifier& identifier, Timestamp now) {
    const bool hasNameless = folder != replica::kRoot && places_.replica.hasNameless(folder);
    return asked_.with([&](auto& asked) {
        if (asked.size() > kMany)
            std::erase_if(asked, [&](const auto& each) { return !isWithin(OpenFolders::kFresh, each.second.at, now); });
        const auto [entry, isNew] = asked.try_emplace(identifier, Asked{folder, now});
        Asked& last = entry->second;
        if (!isNew && (hasNameless || last.folder != folder) && isWithin(OpenFolders::kFresh, last.at, now))
            return last.at + OpenFolders::kFresh;
        last = {folder, now};
        return now;
    });
}

bool Folders::isStill(replica::Inode folder, const ItemIdentifier& identifier) const {
    const auto row = places_.replica.row(folder);
    return row && row->identifier == identifier;
}

void Folders::advanced(replica::Inode folder) {
    const auto waiting = listings_.with([&](auto& listings) { return std::exchange(listings[folder].waiting, {}); });
    answer(waiting, true, std::nullopt);
}

void Folders::answer(const std::vector<Handler>& waiting, bool more, const std::optional<NSError>& error) const {
    for (const Handler& handler : waiting) orLog("answer(_:)", [&] { handler(more, error); });
}

void Folders::completed(replica::Inode folder, const ItemIdentifier& identifier, Timestamp began) {
    const Timestamp now = places_.clock.now();
    if (folder != replica::kRoot) places_.notices.tell(places_.replica.setListed(folder, identifier, began, now));
    if (folder != replica::kRoot && places_.replica.hasNameless(folder))
        places_.tasks.after(replica::Past::kCached,
                            [self = shared_from_this(), folder] { self->list(folder, nullptr); });
    checked_.with([&](auto& checked) { checked[folder].completed = now; });
    if (answered(folder))
        places_.replica.forgetSentTo(folder);
    else if (places_.replica.hasSentTo(folder))
        places_.tasks.after(OpenFolders::kFresh, [self = shared_from_this(), folder] { self->list(folder, nullptr); });
    ended(folder, std::nullopt);
    // The listing has ended: what is thrown here is not its failure.
    if (places_.replica.hasMoreToIdentify()) orLog("completed(_:)", [&] { identifyAll(); });
}

bool Folders::isFresh(replica::Inode folder) const {
    const auto at = answered(folder);
    return at && isWithin(OpenFolders::kFresh, *at, places_.clock.now());
}

std::optional<Timestamp> Folders::answered(replica::Inode folder) const {
    const Timestamp now = places_.clock.now(), lost = hostLost_.copy(), since = places_.manager.state().since;
    const auto ifPast = [now](Timestamp time) { return time <= now ? time : Timestamp(); }; // clocks are set
    const Timestamp from = std::max(ifPast(lost) + OpenFolders::kFresh, ifPast(since));
    return checked_.with([&](const auto& checked) {
        const auto entry = checked.find(folder);
        const bool isSo =
            entry != checked.end() && entry->second.began >= from && entry->second.completed != Timestamp();
        return isSo ? std::optional(entry->second.completed) : std::nullopt;
    });
}

void Folders::hostIsAway() {
    hostLost_.with([now = places_.clock.now()](Timestamp& last) { last = now; });
}

bool Folders::isHostLostLately() const { return isWithin(OpenFolders::kFresh, hostLost_.copy(), places_.clock.now()); }

/// It was asked for without an answer.
void Folders::unanswered(replica::Inode folder) {
    const Timestamp now = places_.clock.now();
    checked_.with([&](auto& checked) { checked[folder].unanswered = now; });
}

/// An empty listing is not one that a cache gives once more.
bool Folders::mayBeEmpty(replica::Inode folder) const {
    const Timestamp now = places_.clock.now();
    return !isHostLostLately() && checked_.with([&](const auto& checked) {
        const auto entry = checked.find(folder);
        return entry == checked.end() || !isWithin(OpenFolders::kFresh, entry->second.unanswered, now);
    });
}

void Folders::setNew(replica::Inode folder) {
    const Timestamp now = places_.clock.now();
    checked_.with([&](auto& checked) { checked[folder] = {now, now}; });
}

void Folders::ended(replica::Inode folder, std::optional<NSError> error) {
    const auto failure = attempt("ended(_:)", [&] {
        if (error && error->code == FileProviderErrorCode::noSuchItem)
            if (const auto row = places_.replica.row(folder); row && row->identifier && folder != replica::kRoot)
                places_.notices.tell(places_.replica.remove(std::vector{*row->identifier}, places_.clock.now()));
    });
    if (failure) error = failure;
    const auto listing = listings_.with([&](auto& listings) { return listings.extract(folder); });
    if (listing) answer(listing.mapped().waiting, false, error);
    if (listed_) orLog("ended(_:)", listed_);
}

} // namespace brindlemar
