#include "cli/LiveControl.h"

#include <cerrno>

namespace brindlemar::cli {

namespace {
bool readAnswer(const std::optional<FileDescriptor>& input, const Control::LineHandler& handler) {
    if (input) readLines(*input, handler);
    return input.has_value();
}
} // namespace

bool LiveControl::callItem(const std::string& identifier, const LineHandler& handler) {
    return readAnswer(client_.callItem(identifier), handler);
}

bool LiveControl::callList(const std::string& identifier, std::uint32_t pageSize, const LineHandler& handler) {
    return readAnswer(client_.callList(identifier, pageSize), handler);
}

void readLines(const FileDescriptor& input, const Control::LineHandler& handler) {
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(input.get(), buffer, sizeof buffer);
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
