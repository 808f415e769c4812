#include "provider/mount/Rescue.h"

#include "provider/mount/Attributes.h"
#include "provider/mount/Failures.h"
#include "support/Logger.h"

#include <sys/stat.h>

namespace brindlemar {

using replica::Inode;
using replica::Row;

void Rescue::add(std::string contents, UnsentNote note) {
    ++missing_;
    wait({std::move(contents), std::move(note), nullptr});
}

void Rescue::wait(const Lost& lost) {
    lost_.with([&](auto& all) { all.push_back(lost); });
}

void Rescue::look(const std::function<void(Inode)>& rescued) {
    auto all = lost_.with([](auto& lost) { return std::exchange(lost, {}); });
    for (Lost& lost : all) {
        lost.rescued = rescued;
        if (!orLog("look(_:)", [&] { seek(lost, replica::kRoot, 0); })) wait(lost);
    }
}

void Rescue::seek(const Lost& lost, Inode folder, std::size_t from) {
    const std::string& path = lost.note.path;
    const std::size_t end = path.find('/', from);
    const auto row = places_.replica.row(folder);
    if (!row) return wait(lost);
    const auto lookAgain = [self = shared_from_this(), lost, folder, from](bool more, const auto& error) {
        const auto now = self->places_.replica.row(folder);
        if (error || !now || (!more && !Folders::isKnown(*now))) return self->wait(lost);
        if (!orLog("seek(_:)", [&] { self->seek(lost, folder, from); })) self->wait(lost);
    };
    const std::string name = path.substr(from, end == path.npos ? end : end - from);
    const auto child = places_.replica.child(folder, name);
    if (!child && folder == replica::kRoot) return wait(lost); // its connection is not there
    if (!child && !Folders::isKnown(*row)) return places_.folders->list(folder, lookAgain);
    if (end == path.npos) return settle(lost, folder, name);
    if (child && child->folder) return seek(lost, child->inode, end + 1);
    const std::string free = freeName(folder, name);
    const Row made = places_.replica.create(folder, free, std::nullopt, std::nullopt, row->modified);
    places_.notices.tell({{.parent = folder, .name = free, .inode = made.inode, .entry = true}});
    seek(lost, made.inode, end + 1);
}

std::string Rescue::freeName(Inode folder, const std::string& wanted) {
    return replica::freeName(wanted,
                             [&](const std::string& name) { return places_.replica.child(folder, name).has_value(); });
}

void Rescue::settle(const Lost& lost, Inode folder, const std::string& name) {
    struct stat now {};
    if (::stat(places_.contents.pathOf(lost.contents).c_str(), &now) != 0) {
        --missing_;
        return;
    }
    const Timestamp date = timestampOf(now.st_mtim);
    auto row = places_.replica.child(folder, name);
    const bool isTaken = row && (row->folder || row->pending.creation || row->pending.fields & ItemField::contents);
    if (!row || isTaken) { // what a program has written meanwhile is newer
        row = places_.replica.create(folder, freeName(folder, name), lost.contents, std::nullopt, date);
    }
    const auto edit = [&](Row& changed) {
        changed.contents = lost.contents;
        changed.size = static_cast<std::uint64_t>(now.st_size);
        changed.modified = date;
        return true;
    };
    places_.replica.change(row->inode, edit, ItemField::contents | ItemField::contentModificationDate, date,
                           replica::Safe::fromPowerLoss);
    places_.notices.tell({{.parent = folder, .name = row->name, .inode = row->inode, .entry = true, .contents = true}});
    --missing_;
    LogScope(Logger::shared(), "settle(_:)").warning("found the unsent contents of ", lost.note.path, " again");
    if (lost.rescued) lost.rescued(row->inode);
}

} // namespace brindlemar
