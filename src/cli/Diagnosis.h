// What is wrong on this machine and what to do about it, from what was found there.
#pragma once

#include "cli/ServiceStatus.h"

namespace brindlemar::cli {

enum class Verdict { ok, warning, problem };

struct Check {
    const char* name; // "fuse-device"
    Verdict verdict;
    std::string text;   // a sentence
    std::string remedy; // empty when there is nothing to do
};

/// What is at the path of the mount.
enum class MountPlace { absent, empty, occupied, noDirectory, closed, mounted, stale, silent };

struct DirectoryFinding {
    std::string path; // empty when there is no home directory to tell it
    int error = 0;    // why it cannot be written, or made; else 0
    bool isOurs = true;
};

struct Findings {
    bool isRoot = false;
    int deviceError = 0;     // why /dev/fuse cannot be opened; else 0
    std::string mountHelper; // the path of fusermount3; empty when there is none
    bool helperIsSetuid = false;
    std::string runtimePath;
    std::string runtimeFault; // a sentence; empty when the directory can be used
    DirectoryFinding home, state, cache;
    std::optional<std::uint64_t> freeBytes{}; // for the state
    bool serviceTakesCalls = false;
    std::optional<ServiceStatus> service{}; // none when it does not answer
    std::string mountPath;
    MountPlace mountPlace = MountPlace::absent;
    bool hasSessionBus = false;
};

/// One for each thing that could be looked at, those on which others depend first.
std::vector<Check> diagnose(const Findings& findings);

} // namespace brindlemar::cli
