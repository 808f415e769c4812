#include "cli/Changes.h"
#include "cli/CommandLine.h"
#include "cli/Jobs.h"
#include "cli/Paths.h"
#include "cli/Text.h"

namespace brindlemar::cli {

namespace {
struct Doomed {
    Item item;
    std::string path;
};

/// One that is gone already is as good.
void removeItem(Control& control, const Doomed& doomed) {
    try {
        complete(control, "delete", {{"id", doomed.item.identifier}}, doomed.path);
    } catch (const Failure& failure) {
        if (failure.exit != Exit::notFound) throw;
    }
}

struct Removal {
    Session& session;
    Control& control;
    bool recursive;

    Doomed find(const std::string& path) const {
        const Doomed doomed{findPath(control, path).item, path};
        const std::string shown = "\"" + escaped(path) + "\" is ";
        if (isRoot(doomed.item) || isConnection(doomed.item))
            throw Failure(Exit::failure, shown + "not removed: only its host application can end a connection.");
        if (doomed.item.folder && !recursive)
            throw Failure(Exit::failure, shown + "a folder. Remove it and all below it with \"brindlemar rm -r\".");
        return doomed;
    }

    /// Appends folders before what is in them.
    void collect(const Doomed& top, std::vector<Doomed>& files, std::vector<Doomed>& folders, int depth = 0) const {
        constexpr int deepest = 1000; // no path is deeper; a host's listing may be
        if (depth == deepest) throw Failure(Exit::failure, "\"" + escaped(top.path) + "\" is nested without end.");
        if (!top.item.folder) return files.push_back(top);
        folders.push_back(top);
        for (Item& item : listFolder(control, top.item.identifier, top.path)) {
            std::string path = joined(top.path, item.filename);
            collect({std::move(item), std::move(path)}, files, folders, depth + 1);
        }
    }

    /// All files first, then the folders from the inmost to the first.
    void remove(const Doomed& top) const {
        std::vector<Doomed> files, folders;
        collect(top, files, folders);
        Jobs jobs(session);
        for (const Doomed& file : files) jobs.add([&file](Control& each) { removeItem(each, file); });
        if (!jobs.run()) return;
        for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) removeItem(control, *folder);
    }

    void mustBeGone(const Doomed& doomed) const {
        const Event answer = complete(control, "path", {{"id", doomed.item.identifier}}, doomed.path);
        if (answer.text("reply") != "{}")
            throw Failure(Exit::failure, "\"" + escaped(doomed.path) +
                                             "\" is still there: the host has not removed it. Look at what it says.");
    }

    /// Does this for each, and complains where it fails.
    template <class List, class Do>
    void forEach(const List& list, const Do& act) const {
        for (const auto& each : list) {
            try {
                act(each);
            } catch (const Failure& failure) {
                if (failure.final) throw;
                session.complain(failure);
            }
        }
    }

    void run(const std::vector<std::string>& paths) const {
        std::vector<Doomed> given;
        forEach(paths, [&](const std::string& path) { given.push_back(find(path)); });
        forEach(given, [&](const Doomed& doomed) { remove(doomed); });
        forEach(given, [&](const Doomed& doomed) { mustBeGone(doomed); });
    }
};
} // namespace

void addRemoveCommand(CommandLine& line) {
    const auto paths = std::make_shared<std::vector<std::string>>();
    const auto recursive = std::make_shared<bool>(false);
    CLI::App& rm = line.add(line.app, "rm", "Remove items", [=](Session& session) {
        Control& control = session.control();
        changing(control, [&] { Removal{session, control, *recursive}.run(*paths); });
    });
    rm.add_flag("-r", *recursive, "Folders, too, with all below them");
    rm.add_option("PATH", *paths, "The items")->required();
}

} // namespace brindlemar::cli
