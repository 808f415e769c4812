#include "cli/CommandLine.h"
#include "cli/Delivery.h"
#include "cli/Jobs.h"
#include "cli/Paths.h"
#include "cli/ProgressBar.h"
#include "cli/Text.h"

#include <sys/stat.h>

namespace brindlemar::cli {

namespace {
void fetch(Session& session, Control& control, const Item& item, const std::string& path, const FilePlace& place,
           ProgressBar& bar) {
    ProgressShare share(bar, item.size);
    const auto takeAway = [&](const Event& completion) {
        const std::optional<std::string> source = pathOfFileURL(completion.text("url"));
        if (!source) throwBrokenCall(control, "there is no file for \"" + path + "\"");
        Temporaries::File fetched(session.temporaries, *source);
        const boost::json::object* now = completion.object("item");
        deliver(fetched, session.temporaries, place, now ? readItem(*now).modified : item.modified);
        share.finish();
    };
    complete(
        control, "fetch", {{"id", item.identifier}, {"lend", true}}, path,
        [&](const Event& event) { share.take(event); }, takeAway);
}

/// Brings a folder and all below it, many items at a time.
class TreeFetch {
public:
    TreeFetch(Session& session, const std::string& name)
        : session_(session), jobs_(session), bar_(session.notices, name) {}

    void run(const Item& top, const std::string& path, const std::string& directory) {
        addFolder(top, path, directory);
        jobs_.run();
        if (sawEmptyFolder_ && hostGoesMissing(session_.control())) throw hostNotRunning();
        for (const auto& [made, modified] : directories_) setModified(made, modified); // nothing more is put in them
    }

private:
    void addFolder(const Item& folder, const std::string& path, const std::string& directory) {
        jobs_.add([this, folder, path, directory](Control& control) {
            makeDirectory(directory);
            {
                std::lock_guard lock(mutex_);
                directories_.emplace_back(directory, folder.modified);
            }
            const auto items = listFolder(control, folder.identifier, path.empty() ? "/" : path);
            for (const Item& item : items) addItem(item, joined(path, item.filename), directory + "/" + item.filename);
            if (items.empty()) sawEmptyFolder_ = true;
        });
    }
    void addItem(const Item& item, const std::string& path, const std::string& place) {
        if (!isPlainName(item.filename))
            return session_.complain({Exit::failure, "\"" + escaped(path) +
                                                         "\" is left out: no file here can have "
                                                         "such a name. Rename it with \"brindlemar mv\"."});
        if (item.folder) return addFolder(item, path, place);
        bar_.expect(item.size);
        jobs_.add([this, item, path, place](Control& control) {
            fetch(session_, control, item, path, filePlaceNotIn(place), bar_);
        });
    }
    /// A directory of the file's name is no place for it.
    static FilePlace filePlaceNotIn(const std::string& place) {
        struct stat info {};
        if (::stat(place.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
            errno = EISDIR;
            throw systemError("write", place);
        }
        return filePlace(place, "");
    }

    Session& session_;
    Jobs jobs_;
    ProgressBar bar_;
    std::atomic<bool> sawEmptyFolder_{false}; // or one of an absent host, whose listings are empty
    std::mutex mutex_;
    std::vector<std::pair<std::string, std::optional<double>>> directories_;
};

struct Get {
    std::string path, file{"."};

    void run(Session& session) const {
        Control& control = session.control();
        const FoundItem found = findPath(control, path);
        const Item& item = found.item;
        if (!isRoot(item) && !isPlainName(item.filename))
            throw Failure(Exit::failure,
                          "\"" + escaped(path) + "\" cannot be brought: no file here can have its name.");
        if (!item.folder) {
            const FilePlace place = filePlace(file, item.filename);
            ProgressBar bar(session.notices, item.filename);
            bar.expect(item.size);
            return fetch(session, control, item, path, place, bar);
        }
        struct stat info {};
        const bool inside = !isRoot(item) && ::stat(file.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        TreeFetch(session, item.filename).run(item, path, inside ? file + "/" + item.filename : file);
    }
};
} // namespace

void addGetCommand(CommandLine& line) {
    const auto get = std::make_shared<Get>();
    CLI::App& command = line.add(line.app, "get", "Bring a file, or a folder with all below it",
                                 [get](Session& session) { get->run(session); });
    command.add_option("PATH", get->path, "What to bring")->required();
    command.add_option("FILE", get->file, "Its place here, or a directory to put it in; without it, this directory");
}

} // namespace brindlemar::cli
