#include "host/commands/Warnings.h"

#include "host/commands/ItemText.h"

#include <system_error>

namespace brindlemar::host {

namespace {
/// Quoted: names may hold what a terminal obeys.
std::string pathText(const Served& served, const std::string& path) {
    std::string text;
    appendQuoted(text, path == "." ? served.connection.directory : served.connection.directory + "/" + path);
    return text;
}
} // namespace

void warnOfFailure(const Served& served, const std::string& path, const Tree::Names& folder) {
    if (folder.outcome != Tree::Outcome::failed) return;
    served.warn("The folder " + pathText(served, path) +
                " cannot be read: " + std::generic_category().message(folder.error) + ".");
}

void warnOfNamesLeftOut(const Served& served, const std::string& path, std::size_t unreadable, std::size_t failed) {
    if (unreadable > 0)
        served.warn(std::to_string(unreadable) + " names in " + pathText(served, path) +
                    " are not UTF-8 and are left out. Rename these files to have them served.");
    if (failed > 0)
        served.warn(std::to_string(failed) + " names in " + pathText(served, path) +
                    " cannot be looked at and are left out. Check the folder's permissions.");
}

void warnUnlessKept(const Served& served, bool kept, const std::string& path) {
    if (!kept) served.warn("The settings of " + pathText(served, path) + " could not be stored as they are now.");
}

} // namespace brindlemar::host
