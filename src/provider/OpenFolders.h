// The folders that people have opened lately.
#pragma once

#include "platform/Clock.h"
#include "platform/Extension.h"
#include "support/Guarded.h"

#include <list>

namespace brindlemar {

/// Keeps one enumerator for each folder on show, the latest ones, and knows when its changes are due. Thread-safe.
class OpenFolders {
public:
    /// A folder whose first opening, or last changes, are longer ago than this is asked for its changes when it is
    /// opened again.
    static constexpr auto kFresh = std::chrono::seconds(10);
    static constexpr std::size_t kMost = 64;

    /// The clock outlives the folders.
    explicit OpenFolders(Clock& clock) : clock_(clock) {}
    /// Ends the enumerators.
    ~OpenFolders();

    struct Opened {
        std::shared_ptr<NSFileProviderEnumerator> enumerator;
        bool stale = false; // its changes are to be asked for first
    };
    /// The extension's error when it gives no enumerator.
    std::variant<Opened, NSError> open(NSFileProviderReplicatedExtension& extension, const ItemIdentifier& container);

private:
    struct Folder {
        ItemIdentifier container;
        std::shared_ptr<NSFileProviderEnumerator> enumerator;
        Timestamp checked;
    };
    Clock& clock_;
    Guarded<std::list<Folder>> folders_; // the latest first
};

} // namespace brindlemar
