// What stat(2) tells of an item. Pure: a row in, attributes out.
#pragma once

#include "provider/replica/Row.h"

#include <sys/stat.h>

namespace brindlemar {

Timestamp timestampOf(const timespec& time);

/// The permission bits that somebody may have on the item at the most: read, and write where its capabilities allow.
unsigned allowedPermissions(const replica::Row& row);
/// Those that it has: what was asked for within what is allowed, else 0600 and 0700 within what is allowed.
unsigned permissions(const replica::Row& row);
/// Of the calling user.
struct stat attributesOf(const replica::Row& row);

} // namespace brindlemar
