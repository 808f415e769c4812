// What the extension was told about a folder, to tell it later what is gone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brindlemar::host {

/// The names of one folder that the extension has heard of: those of the last listing, and earlier ones that vanished
/// since and were not reported yet. Kept as one text, a zero byte behind each name. All lists are sorted by bytes.
class KnownNames {
public:
    using Names = std::vector<std::string_view>;

    /// The extension now hears of `current`.
    void listed(const Names& current);
    /// The known names that are not among `current`; they are forgotten, having been reported.
    std::vector<std::string> takeVanished(const Names& current);

private:
    std::string names_;
};

} // namespace brindlemar::host
