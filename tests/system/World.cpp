#include "system/World.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <csignal>

namespace brindlemar::system_tests {

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::size_t count(std::string_view text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++found;
    return found;
}

std::string readAll(const FileDescriptor& descriptor) {
    std::string text;
    char buffer[65536];
    for (ssize_t size; (size = ::read(descriptor.get(), buffer, sizeof buffer)) > 0;) text.append(buffer, size);
    return text;
}

Process::Process(const std::string& program, const Arguments& arguments, const std::string& outputPath,
                 const std::string& errorPath) {
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ != 0) return;
    ::dup2(::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    ::dup2(::open(errorPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), 2);
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
}

Process::~Process() {
    if (pid_ > 0) end(SIGKILL);
}

int Process::end(int signal) {
    ::kill(pid_, signal);
    return wait();
}

int Process::wait() {
    int status = 0;
    ::waitpid(std::exchange(pid_, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

double Process::megabytes(const std::string& field) const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":")) return std::stod(line.substr(field.size() + 1)) / 1024;
    return 0;
}

std::size_t Process::descriptors() const {
    std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid_) + "/fd");
    return static_cast<std::size_t>(std::distance(std::filesystem::begin(entries), std::filesystem::end(entries)));
}

World::World() {
    ::setenv("BRINDLEMAR_RUNTIME_DIR", (path + "/run").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (path + "/state").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (path + "/cache").c_str(), 1);
    ::unsetenv("BRINDLEMAR_LIBRARY_DIR");
}

void World::startHost(const Arguments& arguments) {
    host = Process(BRINDLEMAR_HOST, arguments, path + "/host.out", path + "/host.err");
}

Result World::run(const Arguments& arguments, const char* program) const {
    const std::string base = path + "/run" + std::to_string(run_++);
    const auto start = Clock::now();
    const int status = Process(program, arguments, base + ".out", base + ".err").wait();
    return {status, contentsOf(base + ".out"), contentsOf(base + ".err"), secondsSince(start)};
}

std::optional<double> World::runUntil(const Arguments& arguments, const std::string& output, double limit) const {
    for (const auto start = Clock::now(); secondsSince(start) < limit; ::poll(nullptr, 0, 10)) {
        const Result result = run(arguments);
        if (result.status == 0 && result.output == output) return secondsSince(start);
    }
    return std::nullopt;
}

ControlClient World::control() const {
    for (const auto start = Clock::now(); secondsSince(start) < 10;)
        if (auto client = ControlClient::connect(RuntimeDirectory::open())) return std::move(*client);
    throw std::runtime_error("no service answers");
}

void World::file(const std::string& name, const std::string& contents) const {
    const std::filesystem::path target = path + "/" + name;
    std::filesystem::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary) << contents;
}

static std::string wholeLog(const World& world) {
    return contentsOf(world.path + "/state/brindlemar/Logs/Brindlemar/FileProvider.log");
}

std::string World::newLog() {
    const std::string all = wholeLog(*this);
    return all.substr(std::exchange(logStart_, all.size()));
}

bool World::logs(const std::string& text) const {
    for (const auto start = Clock::now(); secondsSince(start) < 10; ::poll(nullptr, 0, 10))
        if (wholeLog(*this).find(text, logStart_) != std::string::npos) return true;
    return false;
}

} // namespace brindlemar::system_tests
