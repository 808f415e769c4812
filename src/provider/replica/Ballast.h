// Room on the disk that is kept for what makes room.
#pragma once

#include <string>

namespace brindlemar::replica {

/// A file of a MiB. To remove something takes a line in the replica's log, for which a full disk has no place: then the
/// file goes. For one thread at a time.
class Ballast {
public:
    explicit Ballast(std::string path);
    /// False when it was gone already.
    bool release();
    /// Makes the file again, if the disk takes it.
    void restore();

private:
    const std::string path_;
    bool isThere_ = false;
};

} // namespace brindlemar::replica
