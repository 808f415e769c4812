// What the program writes: data to the standard output, words to the user to the standard error.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace brindlemar::cli {

/// Lines to a file; names from elsewhere are escaped when a person looks on. For one thread.
class Output {
public:
    /// `terminal`: escape what would act on a terminal.
    Output(std::FILE* file, bool terminal) : file_(file), terminal_(terminal) {}

    void line(std::string_view text);
    /// A text of several lines as it is, but for what would act on a terminal; and a line's end if it has none.
    void text(std::string_view text);
    /// A name or identifier, as it may be shown here.
    std::string shown(std::string_view text) const;
    /// Writes what is still in the file's buffer. False when the file did not take everything, now or before.
    bool flush();

private:
    std::FILE* const file_;
    const bool terminal_;
};

/// Messages, and below them on a terminal a line that changes. Thread-safe.
class Notices {
public:
    Notices(std::FILE* file, bool terminal) : file_(file), terminal_(terminal) {}

    void say(std::string_view text);
    /// Replaces the changing line; empty takes it away. Only on a terminal.
    void show(std::string_view line);
    bool isTerminal() const { return terminal_; }
    std::size_t columns() const;

private:
    void draw(std::string_view line);

    std::FILE* const file_;
    const bool terminal_;
    std::mutex turn_;
    std::string line_;
};

} // namespace brindlemar::cli
