#include "cli/ViewPath.h"

#include "cli/Failure.h"
#include "cli/Text.h"
#include "support/TextForms.h"

#include <algorithm>

namespace brindlemar::cli {

namespace {
using Names = std::vector<std::string_view>;

/// False when the path leads above where the names begin; there it stays at the beginning.
bool append(Names& names, std::string_view path) {
    bool inside = true;
    for (const std::string_view name : split(path, '/')) {
        if (name.empty() || name == ".") continue;
        if (name != "..")
            names.push_back(name);
        else if (!names.empty())
            names.pop_back();
        else
            inside = false;
    }
    return inside;
}

std::string joinedNames(Names::const_iterator from, Names::const_iterator to) {
    std::string path;
    for (; from != to; ++from) path.append(path.empty() ? "" : "/").append(*from);
    return path;
}

Failure wrong(std::string_view path, const std::string& why) {
    return {Exit::usage, "\"" + escaped(path) + "\" " + why};
}
} // namespace

bool isPathOfMachine(std::string_view path) {
    const std::string_view first = path.substr(0, path.find('/'));
    return path.starts_with('/') || first == "." || first == "..";
}

std::string pathInView(std::string_view path, const ViewPlaces& places) {
    if (path.empty()) throw wrong(path, "is no path. Give one inside the view, such as Work/photos.");
    Names names;
    if (!isPathOfMachine(path)) {
        if (!append(names, path)) throw wrong(path, "leads out of the view. Give a path inside it.");
        return joinedNames(names.begin(), names.end());
    }
    if (places.mounts.empty())
        throw wrong(path, "is none of the view's: the service has no mount. Give a path inside the view, such as "
                          "Work/photos.");
    if (!path.starts_with('/')) append(names, places.currentDirectory);
    append(names, path);
    for (const std::string& mount : places.mounts) {
        Names above;
        append(above, mount);
        const auto [end, from] = std::mismatch(above.begin(), above.end(), names.begin(), names.end());
        if (end == above.end()) return joinedNames(from, names.end());
    }
    throw wrong(path, "is not below the service's mount, \"" + escaped(places.mounts.front()) +
                          "\". Give a path below it, or one inside the view, such as Work/photos.");
}

} // namespace brindlemar::cli
