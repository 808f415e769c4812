// The operations behind the table of calls.
#pragma once

#include "provider/Calls.h"

namespace brindlemar {

// Items: "id".
void callItem(Call call);
void callDelete(Call call);
/// The result is a file of the service's own that the reader may take away. Left alone, it stays until the service's
/// next start; with "lend" true, until the reader closes its end.
void callFetch(Call call);
/// "parent", "name", "mtime"; with "file" a file, else a folder.
void callCreate(Call call);
/// "id", "fields", and what of "name", "parent", "file", "mtime", "atime", "flags" differs from the item as it is.
void callModify(Call call);

// Containers: "id".
/// "pageSize".
void callList(Call call);
/// As a person opens a folder: what was deleted since the last look comes first, then all items in one listing.
void callBrowse(Call call);
void callChanges(Call call);
void callAnchor(Call call);
/// Goes on until the reader is gone. "id" may be empty: all that is known.
void callWatch(Call call);

// The host's own answers.
/// "method", "domain", and the values of the method's keys.
void callAdmin(Call call);
/// "id" of the folder to search below, "text".
void callSearch(Call call);
/// "id": where the host has the item, or "{}".
void callPath(Call call);
/// Drops what the extension remembers of listings, for readers who know better.
void callForget(Call call);

// The mount.
/// "path": frees contents that the host has too.
void callEvict(Call call);
/// "path": makes a tree local.
void callBring(Call call);
/// Tells the host again what has failed.
void callRetry(Call call);
/// "wait": only once the host knows all that was changed.
void callUnmount(Call call);

} // namespace brindlemar
