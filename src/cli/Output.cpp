#include "cli/Output.h"

#include "cli/Text.h"

#include <sys/ioctl.h>

#include <utility>

namespace brindlemar::cli {

void Output::line(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), file_);
    std::fputc('\n', file_);
}

void Output::text(std::string_view text) {
    const std::string safe = terminal_ ? withoutControls(text) : std::string(text);
    std::fwrite(safe.data(), 1, safe.size(), file_);
    if (!safe.ends_with('\n')) std::fputc('\n', file_);
}

std::string Output::shown(std::string_view text) const { return terminal_ ? escaped(text) : std::string(text); }

bool Output::flush() { return std::fflush(file_) == 0 && !std::ferror(file_); }

void Notices::say(std::string_view text) {
    std::lock_guard turn(turn_);
    const std::string line = std::exchange(line_, std::string());
    if (!line.empty()) draw("");
    const std::string whole = "brindlemar: " + std::string(text) + "\n";
    std::fwrite(whole.data(), 1, whole.size(), file_);
    if (!line.empty()) draw(line);
    line_ = line;
    std::fflush(file_);
}

void Notices::show(std::string_view line) {
    if (!terminal_) return;
    std::lock_guard turn(turn_);
    if (line == line_) return;
    draw(line);
    line_ = line;
    std::fflush(file_);
}

void Notices::draw(std::string_view line) {
    const std::string whole = "\r" + std::string(line) + "\x1b[K"; // and erases what stood behind it
    std::fwrite(whole.data(), 1, whole.size(), file_);
}

std::size_t Notices::columns() const {
    winsize size{};
    const bool known = ::ioctl(::fileno(file_), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

} // namespace brindlemar::cli
