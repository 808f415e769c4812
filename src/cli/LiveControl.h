// The service's control socket.
#pragma once

#include "cli/Control.h"
#include "linux/dbus/Control.h"

namespace brindlemar::cli {

class LiveControl : public Control {
public:
    explicit LiveControl(ControlClient client) : client_(std::move(client)) {}
    std::optional<std::string> status() override { return client_.status(); }
    bool callItem(const std::string& identifier, const LineHandler& handler) override;
    bool callList(const std::string& identifier, std::uint32_t pageSize, const LineHandler& handler) override;
    std::string error() const override { return client_.error(); }

private:
    ControlClient client_;
};

/// Hands over each line that can be read, and what stands behind the last line end, if anything.
void readLines(const FileDescriptor& input, const Control::LineHandler& handler);

} // namespace brindlemar::cli
