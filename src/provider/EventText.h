// What a call on the extension gives, as lines of JSON: one object an event.
#pragma once

#include "platform/Domain.h"
#include "platform/Enumerator.h"

#include <span>

namespace brindlemar {

/// {"event":"items","items":[ITEM…]} with every platform property of each item. Reads capabilities(), which the
/// extension logs.
std::string itemsEvent(std::span<const std::shared_ptr<NSFileProviderItem>> items);
/// {"event":"finish","page":BASE64 or null}
std::string finishEvent(const std::optional<NSFileProviderPage>& page);
/// {"event":"completion","item":ITEM or null,"error":ERROR or null}
std::string completionEvent(const NSFileProviderItem* item, const std::optional<NSError>& error,
                            std::string_view text = {}); // a sentence that tells more than the error
/// {"event":"completion","url":URL or null,"item":ITEM or null,"error":ERROR or null}
std::string fetchEvent(const std::optional<FileURL>& url, const NSFileProviderItem* item,
                       const std::optional<NSError>& error);
/// {"event":"completion","item":…,"stillPending":FIELDS,"shouldFetchContent":BOOL,"error":…}
std::string changeEvent(const NSFileProviderItem* item, ItemFields stillPending, bool shouldFetchContent,
                        const std::optional<NSError>& error);
/// {"event":"completion","reply":TEXT,"error":ERROR or null}
std::string replyEvent(std::string_view reply, const std::optional<NSError>& error);
/// {"event":"updated","items":[ITEM…]}
std::string updatedEvent(std::span<const std::shared_ptr<NSFileProviderItem>> items);
/// {"event":"deleted","identifiers":[TEXT…]}
std::string deletedEvent(const std::vector<ItemIdentifier>& identifiers);
/// {"event":"finish","anchor":TEXT,"moreComing":BOOL}
std::string changesFinishEvent(const NSFileProviderSyncAnchor& anchor, bool moreComing);
/// {"event":"progress","completed":N,"total":N}
std::string progressEvent(std::int64_t completed, std::int64_t total);
std::string evictedEvent(std::int64_t files, std::int64_t bytes, std::int64_t kept);
/// An event that tells one number.
std::string countEvent(std::string_view name, std::string_view key, std::int64_t count);

/// RFC 4648, section 4.
std::string base64(std::string_view bytes);

} // namespace brindlemar
