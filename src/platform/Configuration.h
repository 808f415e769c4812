// Constants that the extension, the service around it and every host application share.
#pragma once

#include <string_view>

namespace brindlemar {

/// Application group of host and extension: both port names begin with it, and it names the run-time directory.
inline constexpr std::string_view AppGroupIdentifier = "group.io.brindlemar";

/// Bundle identifier of the extension: the domain that disconnect and reconnect act on, and the base of the log labels.
inline constexpr std::string_view ExtensionBundleIdentifier = "io.brindlemar.FileProvider";

/// Prefix of the decoration identifiers of items.
inline constexpr std::string_view DecorationNamespace = "io.brindlemar.FileProvider";

/// Name under which the service source is published to host applications.
inline constexpr std::string_view brindlemarServiceName = "io.brindlemar.FileProvider.Service";

} // namespace brindlemar
