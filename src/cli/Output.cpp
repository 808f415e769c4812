#include "cli/Output.h"

#include "cli/Text.h"

namespace brindlemar::cli {

void Output::line(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), file_);
    std::fputc('\n', file_);
}

std::string Output::shown(std::string_view text) const { return terminal_ ? escaped(text) : std::string(text); }

bool Output::flush() { return std::fflush(file_) == 0 && !std::ferror(file_); }

} // namespace brindlemar::cli
