#include "cli/LiveControl.h"

#include <boost/json/serialize.hpp>

#include <poll.h>

#include <cerrno>

namespace brindlemar::cli {

std::optional<std::string> LiveControl::status() {
    std::optional<std::string> text = client_.status();
    if (text && text->empty()) text.reset(); // from a service at its end
    return text;
}

bool LiveControl::call(const std::string& operation, const boost::json::object& arguments, const LineHandler& handler) {
    const auto input = client_.call(operation, boost::json::serialize(arguments));
    if (input) readLines(*input, handler, stop_);
    return input.has_value();
}

void readLines(const FileDescriptor& input, const Control::LineHandler& handler, int stop) {
    std::string text;
    char buffer[65536];
    for (;;) {
        pollfd ends[] = {{input.get(), POLLIN, 0}, {stop, POLLIN, 0}};
        const bool stopped = ::poll(ends, std::size(ends), -1) > 0 && ends[1].revents != 0;
        const ssize_t got = stopped ? 0 : ::read(input.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        std::size_t from = 0, searched = text.size();
        text.append(buffer, static_cast<std::size_t>(got));
        for (std::size_t to; (to = text.find('\n', std::max(from, searched))) != std::string::npos; from = to + 1)
            if (!handler(std::string_view(text).substr(from, to - from))) return;
        text.erase(0, from);
    }
    if (!text.empty()) handler(text);
}

} // namespace brindlemar::cli
