#include "cli/Interruption.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <system_error>

namespace brindlemar::cli {

namespace {
bool isIgnored(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}
} // namespace

Interruption::Interruption(std::function<void()> cleanUp) : cleanUp_(std::move(cleanUp)) {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal)) ::sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signals_ = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
    if (!signals_) throw std::system_error(errno, std::generic_category(), "signalfd");
    thread_ = std::thread([this] { wait(); });
}

Interruption::~Interruption() {
    end_.stop();
    thread_.join();
}

void Interruption::wait() {
    pollfd events[] = {{signals_.get(), POLLIN, 0}, {end_.descriptor(), POLLIN, 0}};
    while (::poll(events, std::size(events), -1) < 0 && errno == EINTR) {
    }
    signalfd_siginfo signal{};
    if (events[0].revents == 0 || ::read(signals_.get(), &signal, sizeof signal) != sizeof signal) return;
    cleanUp_();
    ::_exit(128 + static_cast<int>(signal.ssi_signo));
}

} // namespace brindlemar::cli
