// Copies the contents of files without carrying them through this process where the system can.
#pragma once

#include <cstdint>
#include <functional>

namespace brindlemar {

/// Called now and then with the bytes copied so far and those of the whole file; false stops the copy.
using CopyStep = std::function<bool(std::uint64_t done, std::uint64_t total)>;

/// Makes `to`, an empty regular file open for writing, hold what the regular file `from` holds: shares the blocks where
/// the file system can (ioctl_ficlone(2)), else copy_file_range(2), else through a buffer. Holes stay holes. A file
/// that shrinks meanwhile gives what was left of it. 0, or the errno(3) of the failure; ECANCELED when the step said
/// stop.
int copyContents(int from, int to, const CopyStep& step = {});

} // namespace brindlemar
