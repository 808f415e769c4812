// Single calls on the extension, made as the platform makes them, with every event written out.
#pragma once

#include "platform/Extension.h"
#include "platform/Queue.h"
#include "provider/LineOutput.h"

namespace brindlemar {

/// Looks the item up; the output ends after the completion.
void callItem(NSFileProviderReplicatedExtension& extension, ItemIdentifier identifier,
              const std::shared_ptr<LineOutput>& output);

/// Lists the container page by page to its end, or until the reader is gone. Each page is asked for in a task of its
/// own on `tasks`, which outlives the listing. A container that cannot be enumerated gives one completion event with
/// the error.
void callList(NSFileProviderReplicatedExtension& extension, ItemIdentifier container, std::uint32_t pageSize,
              std::shared_ptr<LineOutput> output, Queue& tasks);

} // namespace brindlemar
