// File and process services on Linux.
#pragma once

#include "linux/files/FileCopy.h"
#include "platform/Files.h"

namespace brindlemar {

/// Every place may be accessed: the system's own rights decide.
class LinuxFiles : public Files {
public:
    bool writeAtomically(std::string_view path, std::string_view bytes) override;
    std::optional<NSError> copyItem(const FileURL& at, const FileURL& to) override;
    std::optional<NSError> createDirectory(const FileURL& at) override;
    void removeItem(const FileURL& at) override;
    std::variant<std::vector<FileURL>, NSError> contentsOfDirectory(const FileURL& at) override;
    bool startAccessingSecurityScopedResource(const FileURL&) override { return true; }
    void stopAccessingSecurityScopedResource(const FileURL&) override {}
    std::string globallyUniqueString() override;
    void printLine(std::string_view line) override;

protected:
    /// copyItem(), with a step (see FileCopy.h) that may end it.
    static std::optional<NSError> copyFile(const FileURL& at, const FileURL& to, const CopyStep& step);
};

} // namespace brindlemar
