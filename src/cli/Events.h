// What the service's lines tell.
#pragma once

#include "cli/Control.h"

#include <chrono>

namespace brindlemar::cli {

struct Item {
    std::string identifier;
    std::string parent; // its identifier
    std::string filename;
    bool folder = false;
    std::uint64_t size = 0;           // bytes
    std::optional<double> modified{}; // seconds since 1970
};

/// Missing and mistyped members stay empty.
Item readItem(const boost::json::object& json);
/// The domain of an identifier "domain|item ID"; empty for one without "|".
std::string_view domainOf(std::string_view identifier);
/// A connection's top folder.
bool isConnection(const Item& item);

/// One line of an answer.
struct Event {
    std::string name; // "items", "finish", "completion", "progress" and so on; empty for a line that is none
    boost::json::object members;

    std::string text(std::string_view key) const;
    double number(std::string_view key) const;
    std::uint64_t count(std::string_view key) const; // what is below 0 is 0
    const boost::json::object* object(std::string_view key) const;
    const boost::json::array* array(std::string_view key) const;
};
Event readEvent(std::string_view line);

using EventHandler = std::function<void(const Event&)>;

/// Throws Failure when the event is a completion with an error.
void throwReportedError(Control& control, const Event& event, const std::string& subject);
/// For a call that the service did not take, or did not finish.
[[noreturn]] void throwBrokenCall(Control& control, const std::string& why);

/// Makes a call that ends with a completion, and gives that. The handler gets all other events; `atEnd` a completion
/// without error, while the call lasts. Throws Failure for an error; `subject` is what the user knows the thing by.
Event complete(Control& control, const std::string& operation, const boost::json::object& arguments,
               const std::string& subject, const EventHandler& handler = {}, const EventHandler& atEnd = {});

/// True when the service has no host at present: it was never configured, or its domain is disconnected.
bool hostIsMissing(Control& control);
/// As hostIsMissing(), a moment later if need be: what a lost host had under way fails before the state tells of it.
bool hostGoesMissing(Control& control, std::chrono::milliseconds within = std::chrono::milliseconds(200));

} // namespace brindlemar::cli
