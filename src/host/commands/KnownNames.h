// What the extension was told about a folder, to tell it later what is gone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brindlemar::host {

/// The names of one folder that the extension has heard of: those of the last listing, and earlier ones of whose end
/// it was not told yet. Kept as one text, a zero byte behind each name. All lists are sorted by bytes.
class KnownNames {
public:
    using Names = std::vector<std::string_view>;

    /// The extension hears of `current`.
    void add(const Names& current);
    void add(std::string_view name);
    /// The known names that are not among `current`.
    std::vector<std::string> missingFrom(const Names& current) const;
    /// The extension was told that these are gone.
    void remove(const std::vector<std::string>& gone);
    bool empty() const { return names_.empty(); }

private:
    std::string names_;
};

} // namespace brindlemar::host
