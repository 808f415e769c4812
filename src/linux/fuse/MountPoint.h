// The directory that a file system is mounted on.
#pragma once

#include <optional>
#include <string>

namespace brindlemar::fuse {

/// The file system's name in /proc/mounts: "fuse.brindlemar".
inline constexpr const char* kFileSystemName = "brindlemar";

/// Makes the directory unless it is there, and clears what an ended process has left mounted on it. Why nothing can be
/// mounted there, as a sentence for the user; none when all is well.
std::optional<std::string> prepareMountPoint(const std::string& path);

/// Takes the mount away from the directory tree at once; programs keep what they have open. See umount2(2),
/// fusermount3(1). False when nothing of ours was mounted there, or it cannot be done.
bool detachMount(const std::string& path);

/// The device number, "0:52", of the file system of ours that is mounted at the path, alive or not; none when there is
/// none. See proc(5).
std::optional<std::string> mountedDevice(const std::string& path);

} // namespace brindlemar::fuse
