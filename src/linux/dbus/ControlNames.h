// What both ends of the control socket agree on.
#pragma once

namespace brindlemar::control {

inline constexpr const char* kSocket = "control";
inline constexpr const char* kLock = "control.lock";
inline constexpr const char* kPath = "/io/brindlemar/Control";
inline constexpr const char* kInterface = "io.brindlemar.Control1";

} // namespace brindlemar::control
