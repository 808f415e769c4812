#include "host/commands/KnownNames.h"

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

void KnownNames::add(const Names& current) {
    const Names before = split(names_);
    Names all;
    std::ranges::set_union(before, current, std::back_inserter(all));
    names_ = join(all);
}

void KnownNames::add(std::string_view name) {
    std::size_t at = 0;
    while (at < names_.size()) {
        const std::string_view there(names_.c_str() + at);
        if (there == name) return;
        if (there > name) break;
        at += there.size() + 1;
    }
    names_.insert(at, std::string(name) + '\0');
}

std::vector<std::string> KnownNames::missingFrom(const Names& current) const {
    Names missing;
    std::ranges::set_difference(split(names_), current, std::back_inserter(missing));
    return {missing.begin(), missing.end()};
}

void KnownNames::remove(const std::vector<std::string>& gone) {
    Names kept;
    std::ranges::set_difference(split(names_), Names(gone.begin(), gone.end()), std::back_inserter(kept));
    names_ = join(kept);
}

} // namespace brindlemar::host
