#include "provider/replica/Merge.h"

#include "support/StringHelpers.h"

#include <cstdio>

namespace brindlemar::replica {

MergeAction chooseMerge(const std::optional<LocalSide>& local, const HostVersion& remote) {
    if (!local) return MergeAction::insert;
    if (local->isSent) return MergeAction::leave;
    const bool isSame = local->known == remote || local->uploading == remote;
    if (local->deleted) return isSame ? MergeAction::leave : MergeAction::restore;
    if (isSame) return MergeAction::refresh;
    return local->contentsChanged ? MergeAction::keepBoth : MergeAction::drop;
}

std::string withInsertion(std::string_view name, std::string_view text) {
    std::string extension = fileExtension(name);
    if (!extension.empty()) extension.insert(0, 1, '.');
    std::string_view stem = name.substr(0, name.size() - extension.size());
    if (extension.size() + text.size() >= kLongestName) extension.clear();
    stem = stem.substr(0, kLongestName - extension.size() - text.size());
    while (stem.size() < name.size() && (static_cast<unsigned char>(name[stem.size()]) & 0xC0) == 0x80)
        stem.remove_suffix(1); // no piece of a character
    return std::string(stem).append(text).append(extension);
}

std::string remoteCopyName(std::string_view name, Timestamp date) {
    const std::chrono::year_month_day day(std::chrono::floor<std::chrono::days>(date));
    char text[40];
    std::snprintf(text, sizeof text, " (remote copy %04d-%02u-%02u)", static_cast<int>(day.year()),
                  static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
    return withInsertion(name, text);
}

bool isFileName(std::string_view name) {
    return !name.empty() && name.size() <= kLongestName && name != "." && name != ".." && name.find('/') == name.npos &&
           name.find('\0') == name.npos;
}

} // namespace brindlemar::replica
