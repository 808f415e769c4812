#include "items/DirectoryScan.h"

#include "platform/Platform.h"
#include "support/Logger.h"
#include "support/TextForms.h"

namespace brindlemar {

std::optional<std::vector<FileURL>> securityScopedFileURLs(const FileURL& in) {
    const LogScope log{Logger::shared(), "securityScopedFileURLs(in:)"};
    Files& files = Platform::current().files;
    if (!files.startAccessingSecurityScopedResource(in)) {
        log.error("Unable to access security scoped resource for ", absoluteString(in));
        return std::nullopt;
    }
    auto listed = files.contentsOfDirectory(in);
    files.stopAccessingSecurityScopedResource(in);
    if (const auto* error = std::get_if<NSError>(&listed)) {
        log.error("Unable to retrieve contents of directory ", absoluteString(in), ": ", error->localizedDescription());
        return std::nullopt;
    }
    auto& locations = std::get<0>(listed);
    std::string text;
    for (const FileURL& location : locations) text.append(text.empty() ? "" : ", ").append(absoluteString(location));
    log.debug("File URLs: [", text, "]");
    return std::move(locations);
}

} // namespace brindlemar
