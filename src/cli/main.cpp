// brindlemar: asks the running service.
#include "cli/Interruption.h"
#include "cli/LiveControl.h"
#include "cli/Program.h"

#include <signal.h>
#include <unistd.h>

#include <iostream>

namespace brindlemar::cli {
namespace {

std::unique_ptr<Control> connectToService(int stop) {
    std::optional<ControlClient> client = ControlClient::connect(RuntimeDirectory::open());
    if (!client) throw serviceNotRunning();
    return std::make_unique<LiveControl>(std::move(*client), stop);
}

int start(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_DFL); // a reader that goes away ends the program without a word
    ::signal(SIGXFSZ, SIG_IGN); // a write over the limit fails with EFBIG
    Output output(stdout, ::isatty(STDOUT_FILENO) == 1);
    Notices notices(stderr, ::isatty(STDERR_FILENO) == 1);
    Temporaries temporaries;
    const Interruption interruption([&] {
        temporaries.removeForGood();
        notices.show("");
    });
    const Exit exit = runProgram({argv + 1, argv + argc}, {connectToService, output, notices, temporaries});
    return static_cast<int>(exit);
}

} // namespace
} // namespace brindlemar::cli

int main(int argc, char** argv) {
    try {
        return brindlemar::cli::start(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "brindlemar: " << error.what() << "\n";
        return static_cast<int>(brindlemar::cli::Exit::failure);
    }
}
