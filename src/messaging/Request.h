// What repeats in the requests to the host, as rows of a table.
#pragma once

#include "support/Logger.h"

#include <array>
#include <string_view>

namespace brindlemar {

/// Where a request is registered and sent.
enum class SendVariant { mainQueue, callerThread };

/// How the first key's value is sent when it is the platform's root container identifier.
enum class RootIdentifier { sentAsZero, unchanged };

/// What the completion gets for a text when the host cannot be reached.
enum class UnreachableText { empty, none };

/// Where the completion runs when an answer has come; when the host cannot be reached it runs on the calling thread.
enum class ReplyDelivery { direct, mainQueue }; // direct: on the background queue

/// The names of a request's members beside "command", in the order of the values.
struct RequestKeys {
    std::array<std::string_view, 4> names{};
    std::size_t count = 0;
    consteval RequestKeys(std::initializer_list<std::string_view> list) {
        for (auto name : list) names[count++] = name;
    }
};

/// A log line of a request: nothing when the text is empty.
struct RequestLine {
    LogLevel level = LogLevel::error;
    std::string_view text{};
};

struct RequestRow {
    std::string_view command;
    std::string_view function; // the operation's label in log lines
    RequestKeys keys;
    RootIdentifier root = RootIdentifier::unchanged;
    SendVariant variant = SendVariant::mainQueue;
    UnreachableText unreachable = UnreachableText::empty;
    ReplyDelivery delivery = ReplyDelivery::direct; // mainQueue: for one answer only
    bool reportsEncoding = false;                   // an error line when the payload cannot be built

    /// The operation's base name, "getACL".
    constexpr std::string_view method() const { return function.substr(0, function.find('(')); }

    // Lines that name the request's subject, which is its first value unless the request says otherwise.
    RequestLine starting{};  // before the payload is built
    RequestLine noPort{};    // the host cannot be reached
    RequestLine answered{};  // before the completion is called
    RequestLine noSubject{}; // before the payload is built, when the subject is empty; stands alone
    RequestLine failed{};    // followed by the send status
};

} // namespace brindlemar
