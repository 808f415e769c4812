// What waits for itself.
#include "provider/replica/Statements.h"

#include <unordered_set>

namespace brindlemar::replica {

/// When items wait for each other's names, or a folder for one that is in it, one of them goes out of the way.
std::optional<Job> Replica::untangle(const std::vector<Inode>& jammed) {
    struct Step {
        Inode inode;
        bool hasName; // that the one before it is to have
        std::vector<Step> waitsFor{};
    };
    const auto look = [&](Step step) {
        const auto row = changes_->get(step.inode);
        if (!row) return step;
        if (row->pending.deletion) {
            for (const Row& each : Statements::all(changes_->onHost, row->inode))
                step.waitsFor.push_back({each.inode, false});
            return step;
        }
        if (row->folder && changes_->isAround(row->inode, row->parent, true))
            step.waitsFor.push_back({row->inode, true});
        const auto folder = changes_->get(row->parent);
        if (folder && folder->pending.creation) step.waitsFor.push_back({folder->inode, false});
        const auto other = changes_->inTheWay.first(Statements::readInode, row->parent, row->name, row->inode);
        if (other) step.waitsFor.push_back({*other, true});
        return step;
    };
    const auto canGo = [&](const Step& step) {
        const auto row = step.hasName ? changes_->get(step.inode) : std::nullopt;
        return row && row->identifier && row->hostParent != 0 && !row->error;
    };
    std::unordered_map<Inode, std::size_t> depths; // of those on the path
    std::unordered_set<Inode> seen;
    std::vector<Step> path;
    Inode one = 0;
    for (std::size_t index = 0; one == 0 && index < jammed.size(); ++index) {
        if (seen.insert(jammed[index]).second) path.push_back(look({jammed[index], false}));
        while (!path.empty() && one == 0) {
            depths[path.back().inode] = path.size();
            if (path.back().waitsFor.empty()) {
                depths.erase(path.back().inode);
                path.pop_back();
                continue;
            }
            const Step next = std::move(path.back().waitsFor.back());
            path.back().waitsFor.pop_back();
            if (const auto circle = depths.find(next.inode); circle != depths.end()) {
                if (canGo(next)) one = next.inode;
                for (std::size_t at = circle->second; at < path.size() && one == 0; ++at)
                    if (canGo(path[at])) one = path[at].inode;
            } else if (seen.insert(next.inode).second) {
                path.push_back(look(next));
            }
        }
    }
    auto found = one == 0 ? std::nullopt : job(one);
    if (!found || isStale(found->formerParent.inode)) return std::nullopt;
    Row& item = found->item;
    found->parent = found->formerParent;
    item.parent = item.hostParent;
    item.name = freeName(item.hostName, [&](const std::string& name) {
        return changes_->shown(item.parent, name) ||
               changes_->inTheWay.first(Statements::readInode, item.parent, std::string_view(name), Inode{0});
    });
    item.pending = {.fields = ItemField::filename};
    return found;
}

} // namespace brindlemar::replica
