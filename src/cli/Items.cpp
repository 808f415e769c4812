#include "cli/Items.h"

#include "cli/Failure.h"
#include "cli/Text.h"
#include "platform/Item.h"

#include <boost/json/parse.hpp>

#include <algorithm>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
const json::value* member(const json::object& object, std::string_view key) { return object.if_contains(key); }

std::string textMember(const json::object& object, std::string_view key) {
    const json::value* value = member(object, key);
    const json::string* text = value ? value->if_string() : nullptr;
    return text ? std::string(*text) : std::string();
}

template <class Number>
std::optional<Number> numberMember(const json::object& object, std::string_view key) {
    const json::value* value = member(object, key);
    if (!value || !value->is_number()) return std::nullopt;
    json::error_code inexact;
    const Number number = value->to_number<Number>(inexact);
    return inexact ? std::nullopt : std::optional(number);
}

json::object parseObject(std::string_view text) {
    json::error_code error;
    json::value value = json::parse(text, error);
    if (error || !value.is_object()) return {};
    return std::move(value.get_object());
}
} // namespace

Item readItem(const json::object& json) {
    return {.identifier = textMember(json, "itemIdentifier"),
            .filename = textMember(json, "filename"),
            .folder = textMember(json, "contentType") == UTType::directory,
            .size = numberMember<std::uint64_t>(json, "documentSize").value_or(0),
            .modified = numberMember<double>(json, "contentModificationDate")};
}

Event readEvent(std::string_view line) {
    Event event{"", parseObject(line)};
    event.name = textMember(event.members, "event");
    return event;
}

void throwReportedError(const Event& event, const std::string& subject) {
    const json::value* error = member(event.members, "error");
    const json::object* parts = event.name == "completion" && error ? error->if_object() : nullptr;
    if (parts)
        throw reportedError(textMember(*parts, "domain"), numberMember<int>(*parts, "code").value_or(0), subject);
}

void Listing::take(const Event& event, const std::string& subject, const ItemHandler& handler) {
    throwReportedError(event, subject);
    if (event.name == "finish") {
        ++pages;
        nextPage = textMember(event.members, "page");
        finished = nextPage.empty();
    }
    const json::value* list = event.name == "items" ? member(event.members, "items") : nullptr;
    if (!list || !list->is_array()) return;
    for (const json::value& item : list->get_array()) {
        if (!item.is_object()) continue;
        ++items;
        handler(item.get_object());
    }
}

void listContainer(Control& control, const std::string& identifier, const std::string& subject,
                   const ItemHandler& handler) {
    Listing listing;
    const bool taken = control.callList(identifier, kUsualPageSize, [&](std::string_view line) {
        listing.take(readEvent(line), subject, handler);
        return true;
    });
    if (!taken) throw brokenCall(control.error());
    if (!listing.finished) throw brokenCall("the listing of \"" + subject + "\" has no end");
}

std::vector<Item> listContainer(Control& control, const std::string& identifier, const std::string& subject) {
    std::vector<Item> items;
    listContainer(control, identifier, subject, [&](const json::object& item) { items.push_back(readItem(item)); });
    return items;
}

FoundItem findPath(Control& control, std::string_view path) {
    FoundItem found;
    found.item.identifier = NSFileProviderRootContainerItemIdentifier;
    found.item.folder = true;
    std::string walked;
    while (true) {
        path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
        if (path.empty()) return found;
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(name.size());
        if (!found.item.folder)
            throw Failure(Exit::notFound, "\"" + escaped(walked) + "\" is no folder, so there is nothing in it.");
        std::optional<FoundItem> next;
        const std::string container = found.item.identifier;
        listContainer(control, container, walked.empty() ? "/" : walked, [&](const json::object& each) {
            Item item = readItem(each);
            if (!next && item.filename == name) next = FoundItem{std::move(item), each};
        });
        walked.append(walked.empty() ? "" : "/").append(name);
        if (!next && hostIsMissing(control)) throw hostNotRunning();
        if (!next)
            throw Failure(Exit::notFound,
                          "There is no \"" + escaped(walked) + "\". See what there is with \"brindlemar ls\".");
        found = std::move(*next);
    }
}

bool hostIsMissing(Control& control) {
    const std::optional<std::string> text = control.status();
    if (!text) throw brokenCall(control.error());
    const json::object status = parseObject(*text);
    const json::value* configured = member(status, "configured");
    const json::value* domain = member(status, "domain");
    const bool connected = domain && domain->is_object() && textMember(domain->get_object(), "state") == "connected";
    return !connected || !configured || !configured->is_bool() || !configured->get_bool();
}

} // namespace brindlemar::cli
