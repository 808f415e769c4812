#include "core/BrindlemarFileProvider.h"

#include "items/BrindlemarFileProviderItemEnumerator.h"
#include "platform/Platform.h"
#include "support/Logger.h"

#include <algorithm>

namespace brindlemar {

namespace {
constexpr auto kSignalDelay = std::chrono::seconds(1);

/// Puts the container at the end of both lists, where it stands once.
void noteEnumerator(EnumeratorLists& lists, const ItemIdentifier& container) {
    std::erase(lists.liveEnumerators, container);
    std::erase(lists.recentEnumerators, container);
    lists.recentEnumerators.push_back(container);
    lists.liveEnumerators.push_back(container);
}
} // namespace

std::variant<std::shared_ptr<NSFileProviderEnumerator>, NSError>
BrindlemarFileProvider::enumerator(ItemIdentifier container) {
    if (container == NSFileProviderTrashContainerItemIdentifier) return featureUnsupported();
    LogScope(Logger::shared(), "enumerator(for:request:)").info("Create enumerator for ", container);

    const ResolvedIdentifier resolved = resolveIdentifier(container);
    if (resolved.qualified && !isConnected(resolved.domain)) return fileProviderErrorForNonExistentItem(container);
    const bool isNamed = connections.with([&](const auto& records) {
        return std::ranges::any_of(records, [&](const std::string& record) {
            const auto connection = parseConnection(record);
            return connection && connection->domain == resolved.domain;
        });
    });
    if (!isNamed && resolved.domain != kDefaultDomain) return noSuchItem();

    auto result = std::make_shared<BrindlemarFileProviderItemEnumerator>(
        BrindlemarFileProviderItemEnumerator::Container{.domain = std::string(resolved.domain),
                                                        .itemID = ItemIdentifier(resolved.itemID),
                                                        .writableRoot = writableRoot,
                                                        .provider = shared_from_this(),
                                                        .rawContainer = container});
    if (container != NSFileProviderWorkingSetContainerItemIdentifier) {
        enumerators.with([&](EnumeratorLists& lists) { noteEnumerator(lists, container); });
        scheduleWorkingSetSignal();
    }
    return result;
}

void BrindlemarFileProvider::scheduleWorkingSetSignal() const {
    Platform::current().mainQueue.after(kSignalDelay, [manager = fpManager_] {
        if (!manager) return;
        manager->signalEnumerator(NSFileProviderWorkingSetContainerItemIdentifier,
                                  [](const auto&) { Platform::current().files.printLine("signaled"); });
    });
}

} // namespace brindlemar
