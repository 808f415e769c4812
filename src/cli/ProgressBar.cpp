#include "cli/ProgressBar.h"

#include "cli/Text.h"
#include "support/StringHelpers.h"

#include <algorithm>

namespace brindlemar::cli {

std::string progressLine(const ProgressView& view, std::size_t columns) {
    constexpr std::size_t nameWidth = 30, barWidth = 20;
    const double rate = view.seconds > 0 ? static_cast<double>(view.done) / view.seconds : 0;
    const bool bytes = view.amount == Amount::bytes;
    const auto amount = [&](std::uint64_t value) {
        return bytes ? byteCount(static_cast<double>(value)) : std::to_string(value);
    };
    const std::size_t full = view.percent * barWidth / 100;
    std::string line = trunc(escaped(view.name), nameWidth, "…") + "  [" + std::string(full, '#') +
                       std::string(barWidth - full, ' ') + "]  " + std::to_string(view.percent) + "%  " +
                       amount(view.done) + " of " + amount(view.total) +
                       (bytes ? "  " + byteCount(rate) + "/s" : " files");
    if (rate > 0) {
        const double left = std::min(static_cast<double>(view.total - view.done) / rate, 359'999.0);
        const auto seconds = static_cast<unsigned>(left + 0.5);
        const std::string rest = std::to_string(100 + seconds % 60).substr(1);
        line += "  " + std::to_string(seconds / 60) + ":" + rest + " left";
    }
    return trunc(line, static_cast<std::ptrdiff_t>(columns) - 1, "");
}

void ProgressBar::expect(std::uint64_t more) {
    std::lock_guard lock(mutex_);
    view_.total += more;
}

void ProgressBar::advance(std::uint64_t more) {
    std::lock_guard lock(mutex_);
    view_.done = std::min(view_.done + more, view_.total);
    draw();
}

void ProgressBar::set(std::uint64_t done, std::uint64_t total) {
    std::lock_guard lock(mutex_);
    view_.total = std::max(view_.total, total);
    view_.done = std::max(view_.done, std::min(done, view_.total));
    draw();
}

void ProgressBar::draw() {
    const Clock::time_point now = Clock::now();
    if (!notices_.isTerminal() || now - drawn_ < kPause) return;
    drawn_ = now;
    view_.seconds = std::chrono::duration<double>(now - start_).count();
    const double percent = view_.total == 0 ? 0 : 100.0 * static_cast<double>(view_.done) / view_.total;
    view_.percent = std::max(view_.percent, static_cast<unsigned>(percent)); // the total may grow
    notices_.show(progressLine(view_, notices_.columns()));
}

void ProgressShare::take(const Event& event) {
    const double completed = event.number("completed"), total = event.number("total");
    if (event.name != "progress" || completed <= 0 || completed >= total) return;
    advanceTo(static_cast<std::uint64_t>(static_cast<double>(bytes_) * completed / total));
}

void ProgressShare::advanceTo(std::uint64_t bytes) {
    if (bytes < told_) return;
    bar_.advance(bytes - told_);
    told_ = bytes;
}

} // namespace brindlemar::cli
