// What the commands ask the running service.
#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace brindlemar::cli {

/// Blocking, for one thread.
class Control {
public:
    /// One line of an answer, without its end. False stops reading.
    using LineHandler = std::function<bool(std::string_view line)>;

    virtual ~Control() = default;
    /// JSON text; none on failure.
    virtual std::optional<std::string> status() = 0;
    /// False when the service did not take the call; error() then says why.
    virtual bool call(const std::string& operation, const boost::json::object& arguments,
                      const LineHandler& handler) = 0;
    virtual std::string error() const = 0;
};

} // namespace brindlemar::cli
