#include "cli/Changes.h"
#include "cli/CommandLine.h"
#include "cli/Jobs.h"
#include "cli/LocalTree.h"
#include "cli/Paths.h"
#include "cli/ProgressBar.h"
#include "cli/Text.h"

namespace brindlemar::cli {

namespace {
/// Takes a file, or a directory and all below it, many at a time.
class Upload {
public:
    Upload(Session& session, const LocalFile& top)
        : session_(session), jobs_(session), bar_(session.notices, top.name) {
        bar_.expect(top.bytes());
    }

    /// Throws Failure when the item itself cannot be put there.
    void run(const LocalFile& top, const Place& place) {
        put(session_.control(), top, place.folder.identifier, place.path(), place.existing);
        jobs_.run();
        Jobs dates(session_); // now that nothing more is put in them
        for (const Made& folder : made_)
            dates.add([&folder](Control& each) {
                complete(each, "modify",
                         {{"id", folder.identifier}, {"fields", "contentModificationDate"}, {"mtime", folder.modified}},
                         folder.path);
            });
        dates.run();
    }

private:
    void put(Control& control, const LocalFile& file, const std::string& folder, const std::string& path,
             const std::optional<Item>& existing) {
        if (existing && existing->folder != file.directory)
            throw Failure(Exit::failure, "\"" + escaped(path) + "\" is there and is " +
                                             (existing->folder ? "a folder" : "no folder") +
                                             ". Remove it first, or name another place.");
        if (file.directory) return putDirectory(control, file, folder, path, existing);
        file.mustBeReadable();
        ProgressShare share(bar_, file.size);
        boost::json::object arguments{{"file", file.path}, {"mtime", file.modified}};
        if (existing) {
            arguments["id"] = existing->identifier;
            arguments["fields"] = "contents,contentModificationDate";
        } else {
            arguments["parent"] = folder;
            arguments["name"] = file.name;
        }
        complete(control, existing ? "modify" : "create", arguments, path,
                 [&](const Event& event) { share.take(event); });
        share.finish();
    }

    void putDirectory(Control& control, const LocalFile& directory, const std::string& above, const std::string& path,
                      const std::optional<Item>& existing) {
        std::unordered_map<std::string, Item> there;
        if (existing)
            for (Item& item : listFolder(control, existing->identifier, path)) there.emplace(item.filename, item);
        const std::string folder =
            existing ? existing->identifier : makeFolder(control, above, directory.name, directory.modified, path);
        if (!existing && !directory.files.empty()) {
            std::lock_guard lock(mutex_);
            made_.push_back({folder, path, directory.modified});
        }
        for (const LocalFile& file : directory.files) {
            const auto same = there.find(file.name);
            const auto item = same == there.end() ? std::nullopt : std::optional(same->second);
            jobs_.add([this, &file, folder, below = joined(path, file.name), item](Control& each) {
                put(each, file, folder, below, item);
            });
        }
    }

    struct Made {
        std::string identifier, path, modified;
    };
    Session& session_;
    Jobs jobs_;
    ProgressBar bar_;
    std::mutex mutex_;
    std::vector<Made> made_;
};

struct Put {
    std::string file, path;

    void run(Session& session) const {
        const LocalFile local = readLocalFile(file, [&](const Failure& left) { session.complain(left); });
        Control& control = session.control();
        changing(control, [&] {
            const Place place = placeFor(control, path, local.name);
            if (!place.existing) place.refuseTop();
            LocalFile named = local;
            named.name = place.name;
            Upload(session, named).run(named, place);
        });
    }
};
} // namespace

void addPutCommand(CommandLine& line) {
    const auto put = std::make_shared<Put>();
    CLI::App& command = line.add(line.app, "put", "Take a file, or a directory with all below it, there",
                                 [put](Session& session) { put->run(session); });
    command.add_option("FILE", put->file, "What to take")->required();
    command.add_option("PATH", put->path, "The folder to put it in, or its new path")->required();
}

} // namespace brindlemar::cli
