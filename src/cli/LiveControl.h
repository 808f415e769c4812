// The service's control socket.
#pragma once

#include "cli/Control.h"
#include "linux/dbus/Control.h"

namespace brindlemar::cli {

class LiveControl : public Control {
public:
    /// Calls end early once the descriptor `stop` is readable; -1 for never.
    explicit LiveControl(ControlClient client, int stop = -1) : client_(std::move(client)), stop_(stop) {}
    std::optional<std::string> status() override;
    bool call(const std::string& operation, const boost::json::object& arguments, const LineHandler& handler) override;
    std::string error() const override { return client_.error(); }

private:
    ControlClient client_;
    const int stop_;
};

/// Hands over each line that can be read, and what stands behind the last line end, if anything. Gives up once `stop`,
/// unless it is -1, is readable.
void readLines(const FileDescriptor& input, const Control::LineHandler& handler, int stop = -1);

} // namespace brindlemar::cli
