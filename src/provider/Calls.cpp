#include "provider/Calls.h"

#include "provider/EventText.h"

#include <algorithm>

namespace brindlemar {

namespace {
/// One listing on its way through its pages.
class ListCall final : public NSFileProviderEnumerationObserver, public std::enable_shared_from_this<ListCall> {
public:
    ListCall(std::shared_ptr<NSFileProviderEnumerator> enumerator, std::uint32_t pageSize,
             std::shared_ptr<LineOutput> output, Queue& tasks)
        : enumerator_(std::move(enumerator)), pageSize_(std::max(pageSize, 1u)), output_(std::move(output)),
          tasks_(tasks) {}
    ~ListCall() override { enumerator_->invalidate(); }

    void ask(NSFileProviderPage page) {
        tasks_.async(
            [self = shared_from_this(), page = std::move(page)] { self->enumerator_->enumerateItems(self, page); });
    }

    std::int64_t suggestedPageSize() const override { return pageSize_; }
    void didEnumerateItems(ItemBatch items) override { output_->write(itemsEvent(items.items())); }
    void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> page) override {
        if (output_->write(finishEvent(page)) && page) ask(std::move(*page));
    }

private:
    const std::shared_ptr<NSFileProviderEnumerator> enumerator_;
    const std::int64_t pageSize_;
    const std::shared_ptr<LineOutput> output_;
    Queue& tasks_;
};
} // namespace

void callItem(NSFileProviderReplicatedExtension& extension, ItemIdentifier identifier,
              const std::shared_ptr<LineOutput>& output) {
    const auto progress = extension.item(std::move(identifier), [output](const auto& item, const auto& error) {
        output->write(completionEvent(item.get(), error));
    });
    progress->setObserver(
        [output](std::int64_t completed, std::int64_t total) { output->write(progressEvent(completed, total)); });
}

void callList(NSFileProviderReplicatedExtension& extension, ItemIdentifier container, std::uint32_t pageSize,
              std::shared_ptr<LineOutput> output, Queue& tasks) {
    auto result = extension.enumerator(std::move(container));
    if (const auto* error = std::get_if<NSError>(&result)) {
        output->write(completionEvent(nullptr, *error));
        return;
    }
    const auto call = std::make_shared<ListCall>(std::get<0>(std::move(result)), pageSize, std::move(output), tasks);
    call->ask(NSFileProviderPage(std::string(NSFileProviderInitialPageSortedByName)));
}

} // namespace brindlemar
