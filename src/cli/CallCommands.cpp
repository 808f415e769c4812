#include "cli/CommandLine.h"
#include "cli/Paths.h"
#include "cli/Text.h"
#include "support/ItemFieldNames.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>

#include <charconv>
#include <filesystem>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
using Arguments = std::shared_ptr<json::object>;

/// Prints the events of one call for a person.
struct EventPrinter {
    Output& output;

    void row(const std::string& before, const json::value& value) const {
        if (!value.is_object()) return;
        const Item item = readItem(value.get_object());
        output.line(before + output.shown(item.identifier) + "  " +
                    (item.folder ? "folder" : std::to_string(item.size) + " bytes") + "  " +
                    output.shown(item.filename));
    }
    /// "key: value" for each member; texts without quotes, lists and maps as JSON.
    void members(const json::object& object) const {
        for (const auto& [key, value] : object) {
            const std::string text = value.is_string() ? std::string(value.get_string()) : json::serialize(value);
            output.line(output.shown(key) + ": " + output.shown(text));
        }
    }
    void completion(const Event& event) const {
        if (const std::string url = event.text("url"); !url.empty()) output.line("url: " + output.shown(url));
        if (const json::object* item = event.object("item"))
            members(*item);
        else
            output.line("done, without an item");
    }
    void finish(const Event& event, const Listing& listing) const {
        if (const std::string anchor = event.text("anchor"); !anchor.empty())
            output.line("-- anchor " + output.shown(anchor));
        else if (!listing.finished)
            output.line("-- next page " + output.shown(listing.nextPage));
        else
            output.line("-- " + counted(listing.items, "item") + " in " + counted(listing.pages, "page"));
    }
    void print(const Event& event, const Listing& listing) const {
        const auto each = [&](std::string_view name, std::string_view key, const auto& act) {
            const json::array* list = event.name == name ? event.array(key) : nullptr;
            for (const json::value& value : list ? *list : json::array()) act(value);
        };
        each("items", "items", [&](const json::value& item) { row("", item); });
        each("updated", "items", [&](const json::value& item) { row("updated  ", item); });
        each("deleted", "identifiers", [&](const json::value& identifier) {
            if (identifier.is_string()) output.line("deleted  " + output.shown(identifier.get_string()));
        });
        if (event.name == "finish") finish(event, listing);
        if (event.name == "completion") completion(event);
    }
};

/// With JSON the service's lines unchanged.
void call(Session& session, const std::string& operation, const json::object& arguments) {
    Control& control = session.control();
    const json::value* subject = arguments.if_contains(arguments.contains("id") ? "id" : "name");
    const std::string shown = subject ? std::string(subject->get_string()) : operation;
    Listing listing;
    bool ended = false;
    const bool taken = control.call(operation, arguments, [&](std::string_view line) {
        if (session.json) session.output.line(line);
        const Event event = readEvent(line);
        throwReportedError(control, event, shown);
        listing.take(event, [](const json::object&) {});
        if (!session.json) EventPrinter{session.output}.print(event, listing);
        ended = ended || listing.finished || event.name == "completion";
        return true;
    });
    if (!taken) throwBrokenCall(control, control.error());
    if (!ended) throwBrokenCall(control, "\"" + operation + "\" of \"" + shown + "\" has no end");
    if (operation == "list" && listing.items == 0 && hostIsMissing(control)) throw hostNotRunning();
}

// What the calls take.

std::string checkDate(const std::string& text) {
    constexpr double most = 9e9; // nanoseconds of it fit 64 bits
    double seconds = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
    const bool isDate = read.ec == std::errc() && read.ptr == text.data() + text.size() && std::abs(seconds) < most;
    return isDate ? "" : "\"" + text + "\" is no date: give seconds since 1970, such as 1659538288.5";
}

std::string checkFields(const std::string& list) {
    if (itemFields(list)) return "";
    std::string known;
    for (const ItemFieldName& each : kItemFieldNames) known.append(known.empty() ? "" : ", ").append(each.name);
    return "\"" + list + "\" is no list of fields: there are " + known;
}

CLI::Option& addText(CLI::App& app, const Arguments& arguments, const std::string& option, const std::string& key,
                     const std::string& description) {
    return *app.add_option_function<std::string>(
        option, [=](const std::string& text) { (*arguments)[key] = text; }, description);
}
CLI::Option& addDate(CLI::App& app, const Arguments& arguments, const std::string& key, const std::string& what) {
    return *addText(app, arguments, "--" + key, key, what + ", seconds since 1970").check(checkDate);
}
CLI::Option& addFile(CLI::App& app, const Arguments& arguments, const std::string& option) {
    return *app.add_option_function<std::string>(
        option, [=](const std::string& path) { (*arguments)["file"] = std::filesystem::absolute(path).string(); },
        "The contents");
}
void addNumber(CLI::App& app, const Arguments& arguments, const std::string& option, const std::string& key,
               const std::string& description) {
    app.add_option_function<std::uint32_t>(
        option, [=](const std::uint32_t& number) { (*arguments)[key] = number; }, description);
}

struct Row {
    const char *operation, *description;
    void (*addOptions)(CLI::App& app, const Arguments& arguments);
};

void addPageSize(CLI::App& app, const Arguments& arguments) {
    (*arguments)["pageSize"] = 200;
    addNumber(app, arguments, "--page-size", "pageSize", "Items in a page; 200 unless given");
    app.get_option("--page-size")->check(CLI::Range(1u, 1'000'000u));
}

void addCreateOptions(CLI::App& app, const Arguments& arguments) {
    addText(app, arguments, "PARENT", "parent", "The identifier of the folder to make it in").required();
    addText(app, arguments, "NAME", "name", "Its name").required();
    addFile(app, arguments, "FILE").description("Its contents; without it a folder is made");
    addDate(app, arguments, "mtime", "Its date of modification");
}

void addModifyOptions(CLI::App& app, const Arguments& arguments) {
    addText(app, arguments, "--fields", "fields", "What changes: names from contents, filename, and so on")
        .required()
        ->check(checkFields);
    addText(app, arguments, "--name", "name", "The new name");
    addText(app, arguments, "--parent", "parent", "The identifier of the new folder");
    addFile(app, arguments, "--file").description("The new contents");
    addDate(app, arguments, "mtime", "The date of modification");
    addDate(app, arguments, "atime", "The date of last use");
    addNumber(app, arguments, "--flags", "flags", "The file system flags");
}

constexpr Row kRows[] = {
    {"item", "Look an item up", nullptr},
    {"list", "List a container page by page", addPageSize},
    {"changes", "Ask for a container's changes", nullptr},
    {"anchor", "Ask for a container's anchor of changes", nullptr},
    {"fetch", "Have the service fetch a file, and leave it with the service", nullptr},
    {"create", "Make a file or a folder", addCreateOptions},
    {"modify", "Change an item", addModifyOptions},
    {"delete", "Delete an item", nullptr},
};
} // namespace

void addCallCommands(CommandLine& line) {
    CLI::App& calls = line.addGroup("call", "Call an entry point of the extension");
    for (const Row& row : kRows) {
        const auto arguments = std::make_shared<json::object>();
        const auto run = [arguments, row](Session& session) { call(session, row.operation, *arguments); };
        CLI::App& command = line.add(calls, row.operation, row.description, run);
        if (row.addOptions != addCreateOptions)
            addText(command, arguments, "ID", "id", "Its identifier, such as work|photos/a.jpg").required();
        if (row.addOptions) row.addOptions(command, arguments);
    }
}

} // namespace brindlemar::cli
