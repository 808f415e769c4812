// The files that the extension works with in the service.
#pragma once

#include "linux/files/LinuxFiles.h"
#include "provider/DomainRegistry.h"

#include <functional>

namespace brindlemar {

/// The user-visible root is not on the disk: it is what is known of the top. A private copy that a call has under way
/// ends early, and with it the call, once nobody waits for it or its host has gone.
class ServiceFiles final : public LinuxFiles {
public:
    /// The registry outlives the files.
    explicit ServiceFiles(const DomainRegistry& registry) : registry_(registry) {}
    std::optional<NSError> copyItem(const FileURL& at, const FileURL& to) override;
    std::variant<std::vector<FileURL>, NSError> contentsOfDirectory(const FileURL& at) override;

private:
    const DomainRegistry& registry_;
};

/// While it lives, what this thread copies is for somebody who may lose interest in it, and for the host of this
/// connection.
class CopiesForCall {
public:
    CopiesForCall(std::function<bool()> isWanted, std::string domain);
    ~CopiesForCall();
    CopiesForCall(const CopiesForCall&) = delete;
    CopiesForCall& operator=(const CopiesForCall&) = delete;

    /// Why the call need not go on; none while it has to.
    std::optional<NSError> ended() const;

private:
    const std::function<bool()> isWanted_;
    const std::string domain_;
    const bool wasReachable_;
};

} // namespace brindlemar
