#include "cli/Events.h"

#include "cli/Failure.h"
#include "cli/Text.h"
#include "platform/Errors.h"
#include "platform/Item.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>

#include <algorithm>
#include <thread>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
std::string textMember(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
    const json::string* text = value ? value->if_string() : nullptr;
    return text ? std::string(*text) : std::string();
}

template <class Number>
std::optional<Number> numberMember(const json::object& object, std::string_view key) {
    const json::value* value = object.if_contains(key);
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
            .parent = textMember(json, "parentItemIdentifier"),
            .filename = textMember(json, "filename"),
            .folder = textMember(json, "contentType") == UTType::directory,
            .size = numberMember<std::uint64_t>(json, "documentSize").value_or(0),
            .modified = numberMember<double>(json, "contentModificationDate")};
}

std::string_view domainOf(std::string_view identifier) {
    const std::size_t bar = identifier.find('|');
    return identifier.substr(0, bar == identifier.npos ? 0 : bar);
}

bool isConnection(const Item& item) { return item.identifier.ends_with("|0"); }

std::string Event::text(std::string_view key) const { return textMember(members, key); }
double Event::number(std::string_view key) const { return numberMember<double>(members, key).value_or(0); }
std::uint64_t Event::count(std::string_view key) const {
    return static_cast<std::uint64_t>(std::clamp(number(key), 0.0, 1e18));
}
const json::object* Event::object(std::string_view key) const {
    const json::value* value = members.if_contains(key);
    return value ? value->if_object() : nullptr;
}
const json::array* Event::array(std::string_view key) const {
    const json::value* value = members.if_contains(key);
    return value ? value->if_array() : nullptr;
}

Event readEvent(std::string_view line) {
    Event event{"", parseObject(line)};
    event.name = textMember(event.members, "event");
    return event;
}

void throwReportedError(Control& control, const Event& event, const std::string& subject) {
    const json::object* error = event.name == "completion" ? event.object("error") : nullptr;
    if (!error) return;
    const std::string domain = textMember(*error, "domain");
    const int code = numberMember<int>(*error, "code").value_or(0);
    if (const std::string said = event.text("text"); !said.empty()) { // the service's own sentence tells more
        const Failure known = reportedError(domain, code, "", subject);
        throw Failure(known.exit, escaped(said), known.final);
    }
    const bool unclear = domain == NSFileProviderErrorDomain && code == FileProviderErrorCode::cannotSynchronize;
    if (unclear && hostGoesMissing(control, std::chrono::seconds(1))) throw hostNotRunning();
    throw reportedError(domain, code, textMember(*error, "description"), subject);
}

void throwBrokenCall(Control& control, const std::string& why) {
    if (!control.status())
        throw Failure(Exit::failure,
                      "The service has gone away before it had answered. Start it again with \"brindlemard\", then "
                      "repeat the command.",
                      true);
    throw Failure(Exit::failure,
                  "The service did not answer in full: " + escaped(why) + ". Look at \"brindlemar status\".");
}

Event complete(Control& control, const std::string& operation, const json::object& arguments,
               const std::string& subject, const EventHandler& handler, const EventHandler& atEnd) {
    std::optional<Event> completion;
    const bool taken = control.call(operation, arguments, [&](std::string_view line) {
        Event event = readEvent(line);
        if (event.name != "completion") {
            if (handler) handler(event);
            return true;
        }
        completion = std::move(event);
        throwReportedError(control, *completion, subject);
        if (atEnd) atEnd(*completion);
        return !atEnd; // else the end of the call is what it waits for
    });
    if (!taken) throwBrokenCall(control, control.error());
    if (!completion) throwBrokenCall(control, "\"" + operation + "\" of \"" + subject + "\" has no end");
    return std::move(*completion);
}

bool hostIsMissing(Control& control) {
    const std::optional<std::string> text = control.status();
    if (!text) throwBrokenCall(control, control.error());
    const json::object status = parseObject(*text);
    const json::value* configured = status.if_contains("configured");
    const json::value* domain = status.if_contains("domain");
    const bool connected = domain && domain->is_object() && textMember(domain->get_object(), "state") == "connected";
    return !connected || !configured || !configured->is_bool() || !configured->get_bool();
}

bool hostGoesMissing(Control& control, std::chrono::milliseconds within) {
    constexpr std::chrono::milliseconds pause{20};
    for (auto waited = pause; waited <= within; waited += pause) {
        if (hostIsMissing(control)) return true;
        std::this_thread::sleep_for(pause);
    }
    return false;
}

} // namespace brindlemar::cli
