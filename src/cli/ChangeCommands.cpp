#include "cli/Changes.h"
#include "cli/CommandLine.h"
#include "cli/Paths.h"
#include "cli/Text.h"

namespace brindlemar::cli {

std::string dateText(const timespec& time) {
    return std::to_string(time.tv_sec) + "." + std::to_string(1'000'000'000 + time.tv_nsec).substr(1);
}

std::string makeFolder(Control& control, const std::string& parent, const std::string& name,
                       const std::string& modified, const std::string& path) {
    const Event made = complete(control, "create", {{"parent", parent}, {"name", name}, {"mtime", modified}}, path);
    const boost::json::object* item = made.object("item");
    const std::string identifier = item ? readItem(*item).identifier : "";
    if (identifier.empty()) throwBrokenCall(control, "there is no item for the new folder \"" + path + "\"");
    return identifier;
}

namespace {
Failure alreadyThere(const Place& place) {
    return {Exit::failure, "There is already \"" + escaped(place.path()) + "\". Remove it first, or name another."};
}

void makeFolderAt(Control& control, const std::string& path) {
    const Place place = placeAt(control, path);
    if (place.existing) throw alreadyThere(place);
    place.refuseTop();
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    makeFolder(control, place.folder.identifier, place.name, dateText(now), place.path());
}

void move(Control& control, const std::string& from, const std::string& to) {
    const Place source = placeAt(control, from);
    if (!source.existing) throw reportedError("NSFileProviderErrorDomain", -1005, "", from);
    source.refuseTop();
    const Place target = placeFor(control, to, source.name);
    if (target.existing) throw alreadyThere(target);
    target.refuseTop();
    if ((target.folderPath + "/").starts_with(source.path() + "/"))
        throw Failure(Exit::failure,
                      "\"" + escaped(source.path()) + "\" cannot be moved into itself. Name a place outside of it.");
    const Item& item = *source.existing;
    if (domainOf(item.identifier) != domainOf(target.folder.identifier))
        throw Failure(Exit::failure, "\"" + escaped(source.path()) + "\" and \"" + escaped(target.path()) +
                                         "\" are in two connections. Bring it here with \"brindlemar get\", take it "
                                         "there with \"brindlemar put\", then remove the first one.");
    boost::json::object change{{"id", item.identifier}};
    std::string fields;
    if (target.name != source.name) {
        fields = "filename";
        change["name"] = target.name;
    }
    if (target.folder.identifier != source.folder.identifier) {
        fields += fields.empty() ? "parentItemIdentifier" : ",parentItemIdentifier";
        change["parent"] = target.folder.identifier;
    }
    change["fields"] = fields;
    complete(control, "modify", change, source.path());
}
} // namespace

void addChangeCommands(CommandLine& line) {
    const auto path = std::make_shared<std::string>(), target = std::make_shared<std::string>();
    CLI::App& mkdir = line.add(line.app, "mkdir", "Make a folder", [=](Session& session) {
        changing(session.control(), [&] { makeFolderAt(session.control(), *path); });
    });
    mkdir.add_option("PATH", *path, "The new folder; the one above it must exist")->required();

    CLI::App& mv = line.add(line.app, "mv", "Rename an item, or move it into a folder", [=](Session& session) {
        changing(session.control(), [&] { move(session.control(), *path, *target); });
    });
    mv.add_option("PATH", *path, "The item")->required();
    mv.add_option("NEWPATH", *target, "A folder to move it into, or its new path in the same connection")->required();
}

} // namespace brindlemar::cli
