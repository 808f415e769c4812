// What a call on the extension gives, as lines of JSON: one object an event.
#pragma once

#include "platform/Enumerator.h"

#include <span>

namespace brindlemar {

/// {"event":"items","items":[ITEM…]} with every platform property of each item. Reads capabilities(), which the
/// extension logs.
std::string itemsEvent(std::span<const std::shared_ptr<NSFileProviderItem>> items);
/// {"event":"finish","page":BASE64 or null}
std::string finishEvent(const std::optional<NSFileProviderPage>& page);
/// {"event":"completion","item":ITEM or null,"error":ERROR or null}
std::string completionEvent(const NSFileProviderItem* item, const std::optional<NSError>& error);
/// {"event":"progress","completed":N,"total":N}
std::string progressEvent(std::int64_t completed, std::int64_t total);

/// RFC 4648, section 4.
std::string base64(std::string_view bytes);

} // namespace brindlemar
