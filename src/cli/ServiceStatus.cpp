#include "cli/ServiceStatus.h"

#include "platform/Errors.h"

#include <boost/json/array.hpp>

#include <algorithm>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
Event part(const Event& whole, std::string_view key) {
    const json::object* found = whole.object(key);
    return {"", found ? *found : json::object()};
}

bool isTrue(const Event& whole, std::string_view key) {
    const json::value* value = whole.members.if_contains(key);
    return value && value->is_bool() && value->get_bool();
}

template <class Element>
std::vector<Element> list(const Event& whole, std::string_view key, Element (*read)(const Event&)) {
    std::vector<Element> elements;
    if (const json::array* array = whole.array(key))
        for (const json::value& each : *array)
            if (each.is_object()) elements.push_back(read({"", each.get_object()}));
    return elements;
}

ServiceStatus::Connection readConnection(const Event& one) { return {one.text("name"), one.text("domain")}; }

ServiceStatus::Transfer readTransfer(const Event& one) {
    return {one.text("kind"), one.text("path"), one.number("completed"), one.number("total")};
}

ServiceStatus::Failed readFailed(const Event& one) {
    std::string text = one.text("text");
    if (const Event error = part(one, "error"); text.empty() && !error.members.empty())
        text =
            stockErrorDescription(error.text("domain"), static_cast<int>(std::clamp(error.number("code"), -1e9, 1e9)));
    return {one.text("path"), text};
}
} // namespace

ServiceStatus readStatus(const json::object& json) {
    const Event whole{"", json};
    const Event domain = part(whole, "domain"), service = part(whole, "service"), signals = part(whole, "signals");
    ServiceStatus status{
        .pid = service.count("pid"),
        .version = service.text("version"),
        .domain = {.identifier = domain.text("identifier"),
                   .state = domain.text("state"),
                   .reason = domain.text("reason")},
        .configured = isTrue(whole, "configured"),
        .connections = list(whole, "connections", readConnection),
        .signalsPending = signals.count("pending"),
        .signalsTotal = signals.count("total"),
        .requestsWaiting = part(whole, "requests").count("waiting"),
        .tellsMount = json.contains("mount"),
        .mount = std::nullopt,
        .queueLength = std::nullopt,
        .unsaved = {},
        .transfers = list(whole, "transfers", readTransfer),
        .failures = list(whole, "failures", readFailed),
    };
    if (domain.members.contains("since")) status.domain.since = domain.number("since");
    if (whole.object("mount")) {
        const Event mount = part(whole, "mount");
        status.mount = {mount.text("path"), isTrue(mount, "mounted"), mount.text("error")};
    }
    if (whole.object("queue")) {
        const Event queue = part(whole, "queue");
        status.queueLength = queue.count("length");
        status.unsaved = list<std::string>(queue, "unsaved", [](const Event& file) { return file.text("path"); });
    }
    status.failureCount = std::max<std::uint64_t>(whole.count("failureCount"), status.failures.size());
    return status;
}

ServiceStatus statusOf(Control& control) {
    const std::optional<std::string> text = control.status();
    if (!text) throwBrokenCall(control, control.error());
    const Event whole = readEvent(*text);
    if (whole.members.empty()) throwBrokenCall(control, "its status is no JSON object");
    return readStatus(whole.members);
}

} // namespace brindlemar::cli
