#include "host/KnownNames.h"

#include <algorithm>
#include <iterator>

namespace brindlemar::host {

namespace {
KnownNames::Names split(std::string_view text) {
    KnownNames::Names names;
    while (!text.empty()) {
        names.push_back(text.substr(0, text.find('\0')));
        text.remove_prefix(names.back().size() + 1);
    }
    return names;
}

std::string join(const KnownNames::Names& names) {
    std::size_t size = 0;
    for (const std::string_view name : names) size += name.size() + 1;
    std::string text;
    text.reserve(size);
    for (const std::string_view name : names) text.append(name).push_back('\0');
    return text;
}
} // namespace

void KnownNames::listed(const Names& current) {
    const Names before = split(names_);
    Names all;
    std::set_union(before.begin(), before.end(), current.begin(), current.end(), std::back_inserter(all));
    names_ = join(all);
}

std::vector<std::string> KnownNames::takeVanished(const Names& current) {
    const Names before = split(names_);
    Names kept, gone;
    std::set_intersection(before.begin(), before.end(), current.begin(), current.end(), std::back_inserter(kept));
    std::set_difference(before.begin(), before.end(), current.begin(), current.end(), std::back_inserter(gone));
    std::vector<std::string> vanished(gone.begin(), gone.end());
    names_ = join(kept);
    return vanished;
}

} // namespace brindlemar::host
