// A replica with a host that tests play.
#pragma once

#include "fakes/TemporaryDirectory.h"
#include "provider/ItemDraft.h"
#include "provider/replica/Replica.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace brindlemar::replica {

using namespace std::chrono_literals;

inline std::shared_ptr<ItemDraft> item(const std::string& identifier, const std::string& name,
                                       std::int64_t modified = 5) {
    auto draft = std::make_shared<ItemDraft>();
    draft->identifier = identifier;
    draft->name = name;
    const bool isFolder = std::isupper(static_cast<unsigned char>(identifier[0])) != 0;
    draft->type = isFolder ? UTType::directory : UTType::content;
    draft->size = 3;
    draft->modified = Timestamp(std::chrono::seconds(modified));
    return draft;
}

/// A replica and a host. Identifiers of folders begin with a capital letter.
struct World {
    World() {
        reopen();
        list(kRoot, {item("W", "Work")});
        top = replica->find("W")->inode;
    }
    void reopen() {
        sent.reset();
        replica.reset();
        replica.emplace(place.path(), [this](const std::string& text) { said.push_back(text); });
    }
    Effects list(Inode folder, std::initializer_list<std::shared_ptr<ItemDraft>> items, bool toTheEnd = false) {
        const std::string identifier = replica->row(folder)->identifier.value_or("");
        Effects effects = replica->merge(folder, identifier, ItemList(items.begin(), items.end()), now);
        if (toTheEnd)
            for (Effect& each : replica->setListed(folder, identifier, now, now)) effects.push_back(std::move(each));
        return effects;
    }
    Inode at(const std::string& path) {
        if (const auto before = known.find(path); before != known.end()) return before->second;
        std::istringstream names(path);
        Inode inode = top;
        for (std::string name; std::getline(names, name, '/');) {
            const auto row = replica->child(inode, name);
            EXPECT_TRUE(row) << path;
            inode = row ? row->inode : 0;
        }
        return inode;
    }
    /// "create PATH", "folder PATH", "write PATH", "move PATH PATH", "rename PATH PATH" to a free name, "exchange PATH
    /// PATH", "remove PATH", "send" takes the next job, "done" answers it, "lost" fails it, "reopen" is a crash.
    void act(const std::string& step) {
        std::istringstream words(step);
        std::string verb, path, other;
        words >> verb >> path >> other;
        const auto split = [&](const std::string& where) {
            const std::size_t slash = where.rfind('/');
            return slash == where.npos ? std::pair(top, where)
                                       : std::pair(at(where.substr(0, slash)), where.substr(slash + 1));
        };
        if (verb == "create" || verb == "folder") {
            const auto [parent, name] = split(path);
            const auto contents = verb == "create" ? std::optional("c" + std::to_string(++written)) : std::nullopt;
            replica->create(parent, name, contents, {}, now);
        } else if (verb == "write") {
            const auto edit = [&](Row& row) {
                row.contents = "c" + std::to_string(++written);
                row.size = 3;
                row.modified = now;
                return true;
            };
            replica->change(at(path), edit, kContentsFields, now, Safe::fromCrash, "bytes");
        } else if (verb == "move" || verb == "rename") {
            const auto [parent, name] = split(other);
            replica->move(at(path), parent, name, now, verb == "move");
        } else if (verb == "exchange") {
            replica->exchange(at(path), at(other), now);
        } else if (verb == "remove") {
            replica->remove(at(path), now);
        } else if (verb == "send") {
            sent = next();
            replica->sending(*sent, std::nullopt);
        } else if (verb == "done") {
            answer(*sent);
        } else if (verb == "drain") {
            drain();
        } else if (verb == "lost") {
            replica->failed(*sent, std::nullopt);
            sent.reset();
        } else {
            reopen();
        }
    }
    void acts(const std::string& steps) {
        std::istringstream lines(steps);
        for (std::string step; std::getline(lines, step, ',');) act(step);
    }
    std::optional<Job> next() {
        return replica->next([](const Job&) { return false; });
    }
    void answer(const Job& job) {
        const bool isNew = job.item.pending.creation;
        const std::string identifier =
            isNew ? (job.item.folder ? "N" : "n") + std::to_string(++created) : *job.item.identifier;
        const auto result = item(identifier, job.item.name, wholeSecondsSince1970(job.item.modified));
        replica->succeeded(job, job.item.pending.deletion ? nullptr : result.get(), now);
    }
    /// Tells the host everything that waits, as "REQUEST" for each, in order.
    std::string drain() {
        std::string text;
        while (const auto job = next()) {
            text += (text.empty() ? "" : ", ") + what(*job);
            answer(*job);
        }
        EXPECT_EQ(replica->waiting(), 0);
        return text;
    }
    /// "create|delete|place|contents|date IDENTIFIER of PARENT/NAME".
    static std::string what(const Job& job) {
        const Row& row = job.item;
        const ItemFields fields = row.pending.fields;
        return std::string(row.pending.deletion           ? "delete "
                           : row.pending.creation         ? "create "
                           : fields & kPlaceFields        ? "place "
                           : fields & ItemField::contents ? "contents "
                                                          : "date ") +
               (row.pending.creation ? "" : row.identifier.value_or("-") + " ") +
               (row.pending.deletion ? "" : job.parent.identifier.value_or("?") + "/" + row.name);
    }
    /// "NAME=IDENTIFIER/CONTENTS" of the entries, and "+" when it waits.
    std::string shown(Inode folder) {
        std::map<std::string, std::string> entries;
        replica->children(folder, 0, [&](const Row& entry) {
            const Row row = *replica->row(entry.inode);
            entries[row.name] = row.identifier.value_or("-") + (row.contents ? "/" + *row.contents : "") +
                                (row.pending.any() ? "+" : "");
            return true;
        });
        std::string text;
        for (const auto& [name, entry] : entries) text += (text.empty() ? "" : " ") + name + "=" + entry;
        return text;
    }
    const TemporaryDirectory place;
    Timestamp now{1000s};
    std::vector<std::string> said;
    std::optional<Replica> replica;
    std::optional<Job> sent;
    Inode top = 0;
    std::map<std::string, Inode> known; // what a program still knows by that path
    int written = 0, created = 0;
};

} // namespace brindlemar::replica
