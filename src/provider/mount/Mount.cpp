#include "provider/mount/Mount.h"

#include "linux/dbus/DesktopNotification.h"
#include "provider/mount/Failures.h"
#include "support/Logger.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fcntl.h>

#include <filesystem>
#include <fstream>
#include <unordered_set>

namespace brindlemar {

using replica::Inode;
using replica::Row;

namespace {
constexpr unsigned kThreads = 8; // some of them in fsync(2)
constexpr std::size_t kMostFailures = 100;
constexpr std::string_view kBoot = "boot", kSynced = "synced", kRescuing = "rescuing";

std::string directory(const std::string& path) {
    std::filesystem::create_directories(path);
    return path;
}

/// Changes with each start of the machine, see proc(5).
std::string bootIdentifier() {
    std::string text;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), text);
    return text;
}
} // namespace

Mount::Mount(const std::string& state, std::string path, const Places& places)
    : path_(std::move(path)), places_(places), contents_(state + "/contents"),
      replica_(directory(state + "/replica"), [this](const std::string& text) { said_.push_back(text); }),
      folders_(std::make_shared<Folders>(common())),
      downloads_(std::make_shared<Downloads>(Downloads::Places{common(), folders_, places.fetched, contents_, open_})),
      uploads_(std::make_shared<Uploads>(Uploads::Places{common(), folders_, contents_, open_})),
      rescue_(std::make_shared<Rescue>(Rescue::Places{replica_, contents_, notices_, folders_})),
      files_({common(), *folders_, *downloads_, *uploads_, contents_, open_}) {
    folders_->onListed([uploads = std::weak_ptr(uploads_)] {
        if (const auto alive = uploads.lock()) alive->look();
    });
    for (const std::string& text : said_) LogScope(Logger::shared(), "Mount").error(text);
    recover();
}

Mount::~Mount() {
    hide();
    orLog("~Mount()", [&] { // nothing comes any more: the next start may trust what lies there
        const FileDescriptor directory(::open(contents_.directory().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (directory && ::syncfs(directory.get()) == 0) replica_.remember(kBoot, kSynced);
    });
}

Folders::Places Mount::common() {
    return {replica_,        notices_,      places_.extension, places_.folders,
            places_.manager, places_.tasks, places_.clock,     places_.hostIsExpected};
}

void Mount::recover() {
    const std::string boot = bootIdentifier();
    const auto last = replica_.remembered(kBoot);
    if (last && *last != boot && *last != kSynced) {
        // The machine has stopped without a word: what was not made safe may be half there.
        replica_.eachKept([this](const std::string& name, std::string_view bytes) { contents_.write(name, bytes); });
        replica_.eachContents([this](Inode inode, const std::string&, bool isPending) {
            if (!isPending) replica_.dropContents(inode);
        });
    }
    replica_.remember(kBoot, boot);
    std::unordered_set<std::string> wanted;
    replica_.eachContents([&](Inode inode, const std::string& name, bool isPending) {
        struct stat now {};
        if (::stat(contents_.pathOf(name).c_str(), &now) != 0) {
            if (!isPending || !replica_.row(inode)) replica_.dropContents(inode);
            return;
        }
        wanted.insert(name);
        if (!isPending) return;
        const auto row = replica_.row(inode);
        const auto size = static_cast<std::uint64_t>(now.st_size);
        if (!row || row->size == size) return;
        const auto resize = [&](Row& changed) { // written in place until the end
            changed.size = size;
            return true;
        };
        orLog("recover()", [&] { // else it is seen when they are sent
            replica_.change(inode, resize, ItemField::contents, places_.clock.now(), replica::Safe::fromCrash);
        });
    });
    for (const std::string& name : replica_.takeDiscarded()) contents_.remove(name);
    const bool rescues = isRescuing();
    contents_.each([&](const std::string& name) {
        if (wanted.contains(name)) return;
        if (!rescues) return contents_.remove(name);
        // The replica that knew of it is set aside.
        if (const auto note = contents_.noteOf(name))
            rescue_->add(name, *note);
        else
            putAside(name);
    });
    orLog("recover()", [&] { replica_.retry(); });
}

/// A new replica knows nothing of contents that lie here, until all of them have their places again.
bool Mount::isRescuing() { return replica_.remembered(kRescuing).value_or("") == "yes"; }

void Mount::putAside(const std::string& contents) {
    const std::string place = directory(contents_.directory() + ".aside");
    std::filesystem::rename(contents_.pathOf(contents), place + "/" + contents);
}

void Mount::lookForLost() {
    if (rescue_->isDone()) {
        if (isRescuing()) replica_.remember(kRescuing, "");
        return;
    }
    rescue_->look([uploads = std::weak_ptr(uploads_)](Inode inode) {
        if (const auto alive = uploads.lock()) alive->touched(inode);
    });
}

void Mount::show() {
    ParkedRequest::admit();
    auto mounted = fuse::FuseSession::mount(path_, FileSystem::operations(), &files_);
    session_.with([&](Session& session) {
        if (auto* why = std::get_if<std::string>(&mounted)) {
            session.error = std::move(*why);
            return;
        }
        session.session = std::get<0>(std::move(mounted));
        session.error.clear();
        notices_.start(*session.session);
        session.session->start(kThreads);
    });
    if (const std::string error = session_.with([](const Session& session) { return session.error; }); !error.empty())
        LogScope(Logger::shared(), "show()").error(error);
    uploads_->look();
    folders_->identifyAll();
}

void Mount::hide() {
    auto session = session_.with([](Session& current) {
        if (current.session) current.error = "unmounted";
        return std::move(current.session);
    });
    if (!session) return;
    ParkedRequest::refuse(ENOTCONN);
    notices_.stop(); // it may wait for requests, which are still answered
    session->writeBack();
    session->stop();
    session.reset(); // nobody can write any more
    open_.each([this](OpenFile& file) {
        files_.makeSafeAtLast(file);
        file.writers = 0; // whose closes do not come
        file.setLocal(nullptr);
    });
    open_.clear();
    uploads_->look();
}

void Mount::stop() { uploads_->stop(); }

void Mount::apply(const ChangeSet& changes) {
    std::unordered_map<std::string_view, ItemList> byFolder;
    std::unordered_set<std::string_view> present;
    for (const ItemBatch& batch : changes.updated)
        for (const auto& item : batch.items()) {
            byFolder[item->parentItemIdentifier()].push_back(item);
            present.insert(item->itemIdentifier());
        }
    std::vector<ItemIdentifier> gone = changes.deleted;
    std::erase_if(gone, [&](const ItemIdentifier& identifier) { return present.contains(identifier); });
    const Timestamp now = places_.clock.now(), began = changes.began.value_or(now);
    orLog("apply(_:)", [&] {
        for (const auto& [identifier, items] : byFolder)
            if (const auto folder = replica_.find(identifier))
                notices_.tell(replica_.merge(folder->inode, identifier, items, began));
        notices_.tell(replica_.remove(gone, now));
    });
    uploads_->hostIsBack();
    orLog("apply(_:)", [&] { lookForLost(); });
}

void Mount::domainChanged() {
    const DomainManager::State domain = places_.manager.state();
    const Change last = lastChange_.with([&](Change& current) {
        return std::exchange(current, {domain.since, domain.connected});
    });
    if (last.since == domain.since && last.connected == domain.connected) return;
    if (last.connected) { // for a moment at least, even when it is back
        folders_->hostIsAway();
        places_.tasks.after(OpenFolders::kFresh, [this] { uploads_->look(); });
    }
    places_.tasks.async([this, domain] {
        if (!domain.connected) {
            ParkedRequest::failAll(EHOSTDOWN); // also what waits for somebody who looks for the host
            return notifyDesktop("Brindlemar", domain.reason);
        }
        uploads_->hostIsBack();
        orLog("domainChanged()", [&] { lookForLost(); });
    });
}

ChangeFeed::TopLevel Mount::topLevel() {
    ChangeFeed::TopLevel all;
    replica_.children(replica::kRoot, 0, [&](const Row& row) {
        if (row.identifier) all[*row.identifier] = row.name;
        return true;
    });
    return all;
}

Mount::Waiting Mount::waiting() {
    Waiting all{replica_.waiting(), replica_.failureCount(), {}, uploads_->isAtWork()};
    open_.each([&](const OpenFile& file) {
        const auto row = uploads_->isBusy(file.inode()) ? replica_.row(file.inode()) : std::nullopt;
        if (row && row->pending.any() && !row->pending.deletion && !row->error)
            all.written.push_back(replica_.path(row->inode).value_or(row->name));
    });
    return all;
}

Mount::Status Mount::status() {
    Status status;
    status.path = path_;
    status.error = session_.with([](const Session& current) {
        return current.session && current.session->isOver() ? "unmounted by somebody else" : current.error;
    });
    status.waiting = waiting();
    const auto add = [&](const std::vector<Transfer>& transfers, bool fetch) {
        for (const Transfer& transfer : transfers)
            status.transfers.push_back(
                {fetch, replica_.path(transfer.inode).value_or(""), transfer.completed, transfer.total});
    };
    add(downloads_->transfers(), true);
    add(uploads_->transfers(), false);
    for (const Row& row : replica_.failures(kMostFailures))
        status.failures.emplace_back(replica_.path(row.inode).value_or(row.name), *row.error);
    return status;
}

void Mount::evict(const std::string& path,
                  std::function<void(const Freed& freed, const std::optional<NSError>& error)> ended) {
    folders_->find(path, [this, ended = std::move(ended)](const auto& top, const auto& error) {
        Freed freed;
        const auto failure = top ? attempt("evict(_:)", [&] { freed = free(*top); }) : error;
        ended(freed, failure);
    });
}

Mount::Freed Mount::free(const Row& top) {
    Freed freed;
    const std::function<bool(const Row&)> free = [&](const Row& row) {
        if (row.folder) {
            replica_.children(row.inode, 0, free);
        } else if (row.contents && !open_.find(row.inode) && replica_.dropContents(row.inode)) {
            ++freed.files;
            freed.bytes += static_cast<std::int64_t>(row.size);
            notices_.tell({{.parent = row.parent, .name = row.name, .inode = row.inode, .contents = true}});
        } else if (row.contents) {
            ++freed.kept;
        }
        return true;
    };
    free(top);
    for (const std::string& name : replica_.takeDiscarded()) contents_.remove(name);
    return freed;
}

void Mount::bring(const std::string& path, BringTree::Listener listener) {
    folders_->find(path, [this, listener = std::move(listener)](const auto& top, const auto& error) {
        if (!top) return listener.end(error);
        std::make_shared<BringTree>(replica_, *folders_, *downloads_, listener)->start(top->inode);
    });
}

} // namespace brindlemar
