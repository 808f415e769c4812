#include "cli/Diagnosis.h"

#include "cli/Text.h"

#include <cerrno>
#include <system_error>

namespace brindlemar::cli {

namespace {
struct Finding {
    Verdict verdict = Verdict::ok;
    std::string text, remedy{};
};
using Answer = std::optional<Finding>; // none when it cannot be told

Finding good(std::string text) { return {Verdict::ok, std::move(text)}; }
Finding warning(std::string text, std::string remedy) { return {Verdict::warning, std::move(text), std::move(remedy)}; }
Finding problem(std::string text, std::string remedy) { return {Verdict::problem, std::move(text), std::move(remedy)}; }

std::string reason(int error) { return std::generic_category().message(error); }

/// ": TEXT." or just "."
std::string because(const std::string& text) {
    if (text.empty()) return ".";
    return ": " + text + (text.ends_with('.') ? "" : ".");
}

/// Without a mount nobody misses what it takes.
Finding unlessUnwanted(const Findings& found, Finding finding) {
    const bool unwanted = found.service && found.service->tellsMount && !found.service->mount;
    if (unwanted && finding.verdict == Verdict::problem) finding.verdict = Verdict::warning;
    return finding;
}

Finding fuseDevice(const Findings& found) {
    if (found.deviceError == 0) return good("/dev/fuse can be opened.");
    const bool missing = found.deviceError == ENOENT || found.deviceError == ENODEV || found.deviceError == ENXIO;
    return problem("/dev/fuse cannot be opened: " + reason(found.deviceError) + ".",
                   missing
                       ? "Load the kernel module with \"modprobe fuse\" as root; in a container, hand the device in."
                       : "Let your user read and write it: its mode is to be 0666.");
}

Finding mountHelper(const Findings& found) {
    if (found.isRoot) return good("fusermount3 is not needed: root may mount.");
    if (found.mountHelper.empty())
        return problem("fusermount3 is in no directory of PATH.", "Install the package fuse3.");
    if (found.helperIsSetuid) return good(found.mountHelper + " may mount.");
    return problem(found.mountHelper + " may not mount: it is not setuid root.",
                   "Install the package fuse3 again, or run \"chmod u+s " + found.mountHelper + "\" as root.");
}

Finding runtimeDirectory(const Findings& found) {
    if (found.runtimeFault.empty()) return good("The run-time directory " + found.runtimePath + " can be used.");
    const std::string fault = found.runtimeFault.substr(0, found.runtimeFault.rfind("; "));
    return problem(fault + (fault.ends_with('.') ? "" : "."),
                   "Make it your own, of mode 0700, or set BRINDLEMAR_RUNTIME_DIR to one that is, and restart the "
                   "service.");
}

Finding directory(const DirectoryFinding& found, const std::string& name, const std::string& variable) {
    const std::string start = "The " + name + " directory ";
    if (found.path.empty()) return problem(start + "is not known: HOME is not set.", "Set " + variable + ".");
    const std::string another = ", or set " + variable + " to another directory and restart the service.";
    if (found.error != 0)
        return problem(start + found.path + " cannot be written: " + reason(found.error) + ".",
                       "Let your user write it" + another);
    if (found.isOurs) return good(start + found.path + " can be written.");
    return warning(start + found.path + " belongs to another user.", "Make it yours with \"chown\"" + another);
}

Answer diskSpace(const Findings& found) {
    constexpr std::uint64_t mebibyte = 1 << 20, scarce = 1024 * mebibyte, tooLittle = 100 * mebibyte;
    if (!found.freeBytes) return std::nullopt;
    const std::string text = byteCount(static_cast<double>(*found.freeBytes)) + " are free for what is kept here.";
    if (*found.freeBytes >= scarce) return good(text);
    return Finding{*found.freeBytes < tooLittle ? Verdict::problem : Verdict::warning, "Only " + text,
                   "Free some with \"brindlemar evict\", or remove other files of that file system."};
}

Finding service(const Findings& found) {
    if (found.service)
        return good("The service is running, pid " + std::to_string(found.service->pid) + ", version " +
                    found.service->version + ".");
    if (found.serviceTakesCalls)
        return problem("The service is running, but does not answer.",
                       "Restart it, with \"systemctl --user restart brindlemard\" if that has started it.");
    return problem("The service is not running.",
                   "Start it with \"systemctl --user start brindlemard\", or with \"brindlemard\".");
}

struct PlaceFault {
    MountPlace place;
    const char *text, *remedy; // "@" stands for the path
    const char* otherwise;
};
constexpr const char* kElsewhere = ", or start the service with \"--mount\" and another directory.";
constexpr const char* kRestart = ", then restart the service.";
constexpr PlaceFault kPlaceFaults[] = {
    {MountPlace::occupied, "@ is not empty, so nothing can be mounted there.", "Move what is in it", kElsewhere},
    {MountPlace::noDirectory, "@ is no directory, so nothing can be mounted there.", "Move it away", kElsewhere},
    {MountPlace::closed, "@ cannot be looked into.", "Let your user read it and what is above it", kElsewhere},
    {MountPlace::stale, "@ is a mount whose program has ended.", "Take it away with \"fusermount3 -u @\"", kRestart},
    {MountPlace::silent, "@ does not answer.", "Take it away with \"fusermount3 -u -z @\"", kRestart},
};

std::string withPath(std::string text, const std::string& path) {
    for (std::size_t at = 0; (at = text.find('@', at)) != text.npos; at += path.size()) text.replace(at, 1, path);
    return text;
}

Answer mount(const Findings& found) {
    const ServiceStatus::Mount* told = found.service && found.service->mount ? &*found.service->mount : nullptr;
    if (found.service && found.service->tellsMount && !told) return good("No mount is wanted.");
    const std::string& path = found.mountPath;
    if (path.empty()) return std::nullopt;
    for (const PlaceFault& fault : kPlaceFaults)
        if (fault.place == found.mountPlace)
            return problem(withPath(fault.text, path), withPath(fault.remedy, path) + fault.otherwise);
    const bool isMounted = found.mountPlace == MountPlace::mounted;
    if (told && told->mounted && isMounted) return good(path + " is mounted.");
    if (told && told->mounted)
        return problem(path + " is no longer mounted: it was taken away behind the service's back.",
                       "Restart the service.");
    if (isMounted)
        return problem("Something else is mounted at " + path + ".",
                       std::string("Take it away and restart the service") + kElsewhere);
    if (told)
        return problem(path + " is not mounted" + because(told->error),
                       "Put that right unless it is what you want, then restart the service.");
    return good(path + " is free for the mount.");
}

Answer host(const Findings& found) {
    if (!found.service) return std::nullopt;
    const ServiceStatus& status = *found.service;
    const std::string remedy = "Start the host application, such as \"brindlemar-host NAME=DIRECTORY\".";
    if (status.domain.state != "connected")
        return problem("No host application is connected" + because(status.domain.reason), remedy);
    if (!status.configured) return problem("No host application has handed over its connections.", remedy);
    if (status.connections.empty())
        return warning("The host application offers no connection.", "Add one in the host application.");
    return good("A host application offers " + counted(status.connections.size(), "connection") + ".");
}

Answer failures(const Findings& found) {
    if (!found.service || !found.service->queueLength) return std::nullopt;
    const ServiceStatus& status = *found.service;
    if (status.failureCount == 0) return good("Nothing has failed.");
    std::string text = counted(status.failureCount, "item") + " could not be brought or sent";
    if (!status.failures.empty()) text += "; the first: " + status.failures[0].path + because(status.failures[0].text);
    return warning(text + (text.ends_with('.') ? "" : "."),
                   "See all with \"brindlemar status\", then try again with \"brindlemar retry\".");
}

Answer queue(const Findings& found) {
    if (!found.service || !found.service->queueLength) return std::nullopt;
    const std::uint64_t length = *found.service->queueLength;
    if (length == 0) return good("Nothing waits to be sent to the host.");
    const std::string text =
        (length == 1 ? "There is " : "There are ") + counted(length, "change") + " that the host does not have yet.";
    if (found.service->hostIsConnected()) return good(text);
    return warning(text, "Start the host application; they are sent then.");
}

Finding notifications(const Findings& found) {
    if (found.hasSessionBus) return good("There is a session bus for notifications.");
    return warning("There is no session bus, so there are no notifications on the desktop.",
                   "Start the service from a desktop session if you want them.");
}
} // namespace

std::vector<Check> diagnose(const Findings& found) {
    std::vector<Check> checks;
    const auto add = [&](const char* name, Answer answer) {
        if (answer) checks.push_back({name, answer->verdict, std::move(answer->text), std::move(answer->remedy)});
    };
    add("fuse-device", unlessUnwanted(found, fuseDevice(found)));
    add("mount-helper", unlessUnwanted(found, mountHelper(found)));
    add("runtime-directory", runtimeDirectory(found));
    add("home-directory", directory(found.home, "home", "HOME"));
    add("state-directory", directory(found.state, "state", "XDG_STATE_HOME"));
    add("cache-directory", directory(found.cache, "cache", "XDG_CACHE_HOME"));
    add("disk-space", diskSpace(found));
    add("service", service(found));
    add("mount", mount(found));
    add("host", host(found));
    add("failures", failures(found));
    add("queue", queue(found));
    add("notifications", notifications(found));
    return checks;
}

} // namespace brindlemar::cli
