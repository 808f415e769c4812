#include "cli/CommandLine.h"
#include "cli/ProgressBar.h"
#include "cli/ServiceStatus.h"
#include "cli/Text.h"
#include "cli/ViewPath.h"

#include <filesystem>

namespace brindlemar::cli {

namespace {
namespace fs = std::filesystem;

/// With JSON the service's lines unchanged, as they come; else the handler gets the events before the completion.
void ask(Session& session, const std::string& operation, const boost::json::object& arguments,
         const std::string& subject, const EventHandler& handler) {
    Control& control = session.control();
    bool ended = false;
    const bool taken = control.call(operation, arguments, [&](std::string_view line) {
        if (session.json) {
            session.output.line(line);
            session.output.flush();
        }
        const Event event = readEvent(line);
        throwReportedError(control, event, subject);
        ended = event.name == "completion";
        if (!ended && !session.json) handler(event);
        return !ended;
    });
    if (!taken) throwBrokenCall(control, control.error());
    if (!ended) throwBrokenCall(control, "\"" + operation + "\" of \"" + subject + "\" has no end");
}

/// The current directory is told without links, so the mount has to be known without links, too; but the mount itself
/// is not touched, which could wait for whoever serves it.
ViewPlaces viewPlaces(Control& control) {
    ViewPlaces places;
    std::error_code ignored;
    places.currentDirectory = fs::current_path(ignored).string();
    if (const auto mount = statusOf(control).mount; mount && mount->path.starts_with('/')) {
        const fs::path path = mount->path;
        places.mounts = {mount->path, (fs::weakly_canonical(path.parent_path(), ignored) / path.filename()).string()};
    }
    return places;
}

std::string viewPath(Session& session, const std::string& path) {
    return pathInView(path, isPathOfMachine(path) ? viewPlaces(session.control()) : ViewPlaces());
}

void evict(Session& session, const std::string& path) {
    ask(session, "evict", {{"path", viewPath(session, path)}}, path, [&](const Event& event) {
        if (event.name != "evicted") return;
        session.output.line("Freed " + counted(event.count("files"), "file") + ", " + byteCount(event.number("bytes")));
        if (const auto kept = event.count("kept"); kept > 0)
            session.notices.say(counted(kept, "file") + " kept: open, or with changes that the host does not have.");
    });
}

void fetch(Session& session, const std::string& path) {
    const std::string inView = viewPath(session, path);
    ProgressBar bar(session.notices, inView.empty() ? "/" : fs::path(inView).filename().string(), Amount::files);
    ask(session, "bring", {{"path", inView}}, path, [&](const Event& event) {
        if (event.name == "progress") bar.set(event.count("completed"), event.count("total"));
    });
}

void retry(Session& session) {
    ask(session, "retry", {}, "retry", [&](const Event& event) {
        if (event.name == "retried") session.output.line("Trying " + std::to_string(event.count("count")) + " again");
    });
}

void unmount(Session& session, bool wait) {
    const struct ChangingLine {
        Notices& notices;
        ~ChangingLine() { notices.show(""); }
    } line{session.notices};
    ask(session, "unmount", {{"wait", wait}}, "unmount", [&](const Event& event) {
        if (event.name == "queue")
            line.notices.show(std::to_string(event.count("length")) + " waiting to be sent to the host");
    });
}
} // namespace

void addMountCommands(CommandLine& line) {
    const auto path = std::make_shared<std::string>();
    const auto wait = std::make_shared<bool>(false);
    const auto addPath = [&](const char* name, const char* description, void (*run)(Session&, const std::string&)) {
        line.add(line.app, name, description, [=](Session& session) { run(session, *path); })
            .add_option("PATH", *path,
                        "A path of the view, or one below the mount that begins with \"/\", \"./\" or \"../\"")
            ->required();
    };
    addPath("evict", "Free the space of files that are kept here; they are brought again when they are opened", evict);
    addPath("fetch", "Bring files to be kept here, so that they open at once", fetch);
    line.add(line.app, "retry", "Try again what could not be sent", retry);
    line.add(line.app, "unmount", "Take the mount away", [=](Session& session) { unmount(session, *wait); })
        .add_flag("--wait", *wait, "First wait until the host has all changes");
}

} // namespace brindlemar::cli
