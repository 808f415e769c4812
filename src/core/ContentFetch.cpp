#include "core/BrindlemarFileProvider.h"
#include "core/HostReply.h"

#include "messaging/BxMessages.h"
#include "support/OnceCompletion.h"
#include "support/TextForms.h"

namespace brindlemar {

namespace {
using Item = BrindlemarFileProviderItem;
using FetchCompletion =
    OnceCompletion<std::optional<FileURL>, std::shared_ptr<NSFileProviderItem>, std::optional<NSError>>;

constexpr std::string_view kFetch = "fetchContents(for:version:request:completionHandler:)";

/// One fetch on its way: what is fetched, and where the result goes.
struct Fetch {
    std::shared_ptr<ProviderState> provider;
    ItemIdentifier identifier;
    std::shared_ptr<NSProgress> progress;
    FetchCompletion completion;
    LogScope log{Logger::shared(), kFetch};

    int fail() const {
        completion(std::nullopt, nullptr, cannotSynchronize());
        return kFinished;
    }
    int succeed(const JSON& fields) const;
    int replyArrived(std::string_view reply) const;
};

int Fetch::succeed(const JSON& fields) const {
    progress->setCompletedUnitCount(90);
    const ResolvedIdentifier id = resolveIdentifier(identifier);
    auto item = Item::fromJSON(fields, {.withDomain = id.domain, .writableRoot = provider->writableRoot});
    const auto path = fields["path"].string();
    if (!item || !path) return fail();
    const FileURL url{provider->tempURL->path + std::string(*path)};
    log.info("fetchContents complete: ", absoluteString(url));
    completion(url, std::move(item), std::nullopt);
    progress->setCompletedUnitCount(100);
    return kFinished;
}

int Fetch::replyArrived(std::string_view reply) const {
    log.info("fetchContents Completion Handler ", identifier);
    if (completion.isDone()) {
        log.warning("dropped a second result for ", identifier);
        return kFinished;
    }
    if (reply.empty()) {
        const ResolvedIdentifier id = resolveIdentifier(identifier);
        log.errorWith({{"itemID", std::string(id.itemID)}, {"domain", std::string(id.domain)}},
                      "unable to fetch contents for item");
        return fail();
    }
    const JSON json = JSON::parse(reply);
    const auto status = json["status"].string();
    if (status == "success") return succeed(json["item"]);
    if (status != "progress") return fail();
    if (const auto percentage = progressPercentage(json)) progress->setCompletedUnitCount(*percentage);
    return kKeepListening;
}
} // namespace

std::shared_ptr<NSProgress> BrindlemarFileProvider::fetchContents(ItemIdentifier identifier,
                                                                  FetchHandler completionHandler) {
    const ResolvedIdentifier id = resolveIdentifier(identifier);
    if (id.qualified && !isConnected(id.domain)) {
        completionHandler(std::nullopt, nullptr, fileProviderErrorForNonExistentItem(identifier));
        return std::make_shared<NSProgress>();
    }
    LogScope(Logger::shared(), kFetch).info("fetchContents ", identifier);
    auto progress = std::make_shared<NSProgress>(100);
    const Fetch fetch{shared_from_this(),
                      identifier,
                      progress,
                      {std::move(completionHandler), {std::nullopt, nullptr, cannotSynchronize()}}};
    if (!tempURL) {
        fetch.fail();
        return progress;
    }
    BxMessages::sharedInstance().fetchItem(
        {.item = std::string(id.itemID), .toFolder = tempURL->path, .withDomain = std::string(id.domain)},
        [fetch](Payload reply, const auto&) { return fetch.replyArrived(reply.bytes()); });
    return progress;
}

} // namespace brindlemar
