// Paths of the user's as the service's view knows them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brindlemar::cli {

/// Where paths of this machine lead into the view.
struct ViewPlaces {
    std::vector<std::string> mounts; // absolute; several spellings of one place
    std::string currentDirectory;    // absolute
};

/// Whether the path goes through this machine's directories: "/home/me/Brindlemar/Work", "./photos", "..".
/// Any other path, "Work/photos", is the view's own.
bool isPathOfMachine(std::string_view path);

/// The path inside the view, "Work/photos"; empty for all of the view. "." and ".." are taken by name, links are not
/// followed. Throws Failure (usage) when the path is empty, leads out of the view, or is not below a mount.
std::string pathInView(std::string_view path, const ViewPlaces& places);

} // namespace brindlemar::cli
