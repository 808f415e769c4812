// File and process services on Linux.
#pragma once

#include "platform/Files.h"

namespace brindlemar {

class LinuxFiles final : public Files {
public:
    bool writeAtomically(std::string_view path, std::string_view bytes) override;
    void printLine(std::string_view line) override;
};

} // namespace brindlemar
