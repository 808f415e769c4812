// The program's standard output.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace brindlemar::cli {

/// Lines to a file; names from elsewhere are escaped when a person looks on.
class Output {
public:
    /// `terminal`: escape what would act on a terminal.
    Output(std::FILE* file, bool terminal) : file_(file), terminal_(terminal) {}

    void line(std::string_view text);
    /// A name or identifier, as it may be shown here.
    std::string shown(std::string_view text) const;
    /// Writes what is still in the file's buffer. False when the file did not take everything, now or before.
    bool flush();

private:
    std::FILE* const file_;
    const bool terminal_;
};

} // namespace brindlemar::cli
