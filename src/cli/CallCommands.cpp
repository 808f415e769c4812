#include "cli/Commands.h"
#include "cli/Failure.h"
#include "cli/Items.h"
#include "cli/Text.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
/// "key: value" for each member; texts without quotes, lists and maps as JSON.
void printMembers(Output& output, const json::object& object) {
    for (const auto& [key, value] : object) {
        const std::string text = value.is_string() ? std::string(value.get_string()) : json::serialize(value);
        output.line(output.shown(key) + ": " + output.shown(text));
    }
}

const json::object* objectMember(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
    return value ? value->if_object() : nullptr;
}

std::string text(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
    if (!value || value->is_null()) return "";
    return value->is_string() ? std::string(value->get_string()) : json::serialize(*value);
}

void printPageItem(Output& output, const json::object& object) {
    const Item item = readItem(object);
    output.line(output.shown(item.identifier) + "  " + (item.folder ? "folder" : std::to_string(item.size) + " bytes") +
                "  " + output.shown(item.filename));
}
} // namespace

void callItem(Control& control, Output& output, const std::string& identifier, bool json) {
    std::optional<Event> completion;
    const bool taken = control.callItem(identifier, [&](std::string_view line) {
        if (json) output.line(line);
        Event event = readEvent(line);
        if (event.name == "completion") completion = std::move(event);
        return true;
    });
    if (!taken) throw brokenCall(control.error());
    if (!completion) throw brokenCall("the call has no end");
    throwReportedError(*completion, identifier);
    const json::object* item = objectMember(completion->members, "item");
    if (json) return;
    if (item)
        printMembers(output, *item);
    else
        output.line("no item, and no error");
}

void callList(Control& control, Output& output, const ListCall& call) {
    Listing listing;
    const auto printItem = [&](const json::object& item) {
        if (!call.json) printPageItem(output, item);
    };
    const bool taken = control.callList(call.identifier, call.pageSize, [&](std::string_view line) {
        if (call.json) output.line(line);
        const Event event = readEvent(line);
        listing.take(event, call.identifier, printItem);
        if (!call.json && event.name == "finish" && !listing.finished)
            output.line("-- next page " + output.shown(listing.nextPage));
        return true;
    });
    if (!taken) throw brokenCall(control.error());
    if (!listing.finished) throw brokenCall("the listing has no end");
    if (listing.items == 0 && hostIsMissing(control)) throw hostNotRunning();
    if (!call.json) output.line("-- " + counted(listing.items, "item") + " in " + counted(listing.pages, "page"));
}

void printStatus(Control& control, Output& output, bool json) {
    const std::optional<std::string> status = control.status();
    if (!status) throw brokenCall(control.error());
    if (json) return output.line(*status);
    json::error_code error;
    const json::value parsed = json::parse(*status, error);
    if (error || !parsed.is_object()) throw brokenCall("its status is no JSON object");
    const json::object& object = parsed.get_object();
    const json::object none;
    const auto part = [&](std::string_view key) -> const json::object& {
        const json::object* found = objectMember(object, key);
        return found ? *found : none;
    };
    const std::string reason = text(part("domain"), "reason");
    const std::pair<const char*, std::string> rows[] = {
        {"Service      ",
         "running, pid " + text(part("service"), "pid") + ", version " + text(part("service"), "version")},
        {"Domain       ", text(part("domain"), "identifier") + ", " + text(part("domain"), "state") +
                              (reason.empty() ? "" : ": " + reason)},
        {"Configured   ", text(object, "configured") == "true" ? "yes" : "no"},
        {"Signals      ", text(part("signals"), "pending") + " pending, " + text(part("signals"), "total") + " in all"},
        {"Requests     ", text(part("requests"), "waiting") + " waiting"},
    };
    for (const auto& [label, value] : rows) output.line(label + output.shown(value));
    const json::value* connections = object.if_contains("connections");
    if (!connections || !connections->is_array()) return;
    for (const json::value& each : connections->get_array())
        if (each.is_object())
            output.line("Connection   " + output.shown(text(each.get_object(), "name")) + " (" +
                        output.shown(text(each.get_object(), "domain")) + ")");
}

} // namespace brindlemar::cli
