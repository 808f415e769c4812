// A message on the user's desktop.
#pragma once

#include <string>

namespace brindlemar {

/// Shows it through org.freedesktop.Notifications where there is a session bus; else nothing happens. Waits a second at
/// the most.
void notifyDesktop(const std::string& summary, const std::string& body);

} // namespace brindlemar
