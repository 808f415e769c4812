#include "cli/CommandLine.h"
#include "cli/Paths.h"
#include "cli/Text.h"
#include "linux/Wake.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <poll.h>

#include <thread>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
/// Opens a folder again and again, so that its changes are found.
class Reopening {
public:
    Reopening(Session& session, Item folder) : session_(session), folder_(std::move(folder)) {}
    ~Reopening() { end_.stop(); }

private:
    /// A little longer than the service takes a listing for fresh.
    static constexpr std::chrono::milliseconds kPause{10'500};

    void run() {
        pollfd end{end_.descriptor(), POLLIN, 0};
        while (::poll(&end, 1, static_cast<int>(kPause.count())) == 0) {
            try {
                listFolder(*session_.connect(end_.descriptor()), folder_.identifier, "", [](const json::object&) {});
            } catch (const std::exception&) { // the host may be back the next time; the service's end ends the watch
            }
        }
    }

    Session& session_;
    const Item folder_;
    Wake end_;
    std::jthread thread_{[this] { run(); }}; // ends first
};

void printChanges(const Event& event, Output& output, PathNames& names) {
    if (const json::array* items = event.name == "updated" ? event.array("items") : nullptr)
        for (const json::value& item : *items)
            if (item.is_object()) output.line("updated  " + output.shown(names.of(readItem(item.get_object()))));
    if (const json::array* gone = event.name == "deleted" ? event.array("identifiers") : nullptr)
        for (const json::value& each : *gone)
            if (each.is_string())
                output.line("deleted  " + output.shown(names.remembered(std::string(each.get_string()))));
}

void watch(Session& session, const std::string& path) {
    Control& control = session.control();
    const Item folder = findPath(control, path).item;
    if (!folder.folder) throw Failure(Exit::usage, "\"" + escaped(path) + "\" is no folder. Watch the one it is in.");
    const auto second = session.connect(-1); // for questions while the first one waits
    PathNames names(*second);
    std::optional<Reopening> reopening;
    if (!isRoot(folder)) {
        // What is there now is known from here on, and no news.
        for (const Item& item : listFolder(control, folder.identifier, path)) names.of(item);
        reopening.emplace(session, folder);
    }
    const json::object arguments{{"id", isRoot(folder) ? "" : folder.identifier}};
    bool written = true;
    const bool taken = control.call("watch", arguments, [&](std::string_view line) {
        if (session.json)
            session.output.line(line);
        else
            printChanges(readEvent(line), session.output, names);
        return written = session.output.flush();
    });
    if (!taken) throwBrokenCall(control, control.error());
    if (!written) return; // whoever ends the program says so
    if (control.status())
        throw Failure(Exit::failure, "The service ended the watch, because what it told was not read. Watch again.");
    throw Failure(Exit::failure, "The service has ended, and the watch with it. Start it again with \"brindlemard\".");
}

std::vector<std::string> connectedDomains(Control& control) {
    const std::optional<std::string> status = control.status();
    if (!status) throwBrokenCall(control, control.error());
    std::vector<std::string> domains;
    const Event read = readEvent(*status);
    const json::array* connections = read.array("connections");
    for (const json::value& each : connections ? *connections : json::array())
        if (each.is_object()) domains.push_back(Event{"", each.get_object()}.text("domain"));
    return domains;
}

void search(Session& session, const std::string& name) {
    Control& control = session.control();
    const auto domains = connectedDomains(control);
    if (domains.empty() && hostIsMissing(control)) throw hostNotRunning();
    const auto second = session.connect(-1); // for questions while the first one waits
    PathNames names(*second);
    for (const std::string& domain : domains) {
        Listing listing;
        const auto print = [&](const json::object& item) {
            session.output.line(session.json ? json::serialize(item) : session.output.shown(names.of(readItem(item))));
        };
        try {
            complete(control, "search", {{"id", domain + "|0"}, {"text", name}}, domain,
                     [&](const Event& event) { listing.take(event, print); });
        } catch (const Failure& failure) {
            if (failure.final) throw;
            session.complain(failure);
        }
    }
}
} // namespace

void addWatchCommands(CommandLine& line) {
    const auto path = std::make_shared<std::string>(), name = std::make_shared<std::string>();
    CLI::App& watching = line.add(line.app, "watch", "Print new, changed and deleted items until Ctrl-C",
                                  [=](Session& session) { watch(session, *path); });
    watching.add_option("PATH", *path, "A folder to look into for changes; without it, what comes is printed");
    CLI::App& searching = line.add(line.app, "search", "Find items by name in all connections",
                                   [=](Session& session) { search(session, *name); });
    searching.add_option("NAME", *name, "What to look for")->required();
}

} // namespace brindlemar::cli
