#include "provider/OpenFolders.h"

#include <algorithm>

namespace brindlemar {

OpenFolders::~OpenFolders() {
    for (const Folder& folder : folders_.copy()) folder.enumerator->invalidate();
}

std::variant<OpenFolders::Opened, NSError> OpenFolders::open(NSFileProviderReplicatedExtension& extension,
                                                             const ItemIdentifier& container) {
    const Timestamp now = clock_.now();
    const auto known = folders_.with([&](std::list<Folder>& folders) -> std::optional<Opened> {
        const auto found = std::ranges::find(folders, container, &Folder::container);
        if (found == folders.end()) return std::nullopt;
        const Opened opened{found->enumerator, !isWithin(kFresh, found->checked, now)};
        if (opened.stale) found->checked = now;
        folders.splice(folders.begin(), folders, found);
        return opened;
    });
    if (known) return *known;
    auto made = extension.enumerator(container);
    if (const auto* error = std::get_if<NSError>(&made)) return *error;
    const Opened opened{std::get<0>(std::move(made))};
    std::list<Folder> dropped;
    folders_.with([&](std::list<Folder>& folders) {
        const auto same = std::ranges::find(folders, container, &Folder::container); // opened by another meanwhile
        if (same != folders.end()) dropped.splice(dropped.end(), folders, same);
        folders.push_front({container, opened.enumerator, now});
        if (folders.size() > kMost) dropped.splice(dropped.end(), folders, std::prev(folders.end()));
    });
    // A container has one entry in the extension's lists: the new enumerator's must stay.
    for (const Folder& folder : dropped)
        if (folder.container != container) folder.enumerator->invalidate();
    return opened;
}

} // namespace brindlemar
