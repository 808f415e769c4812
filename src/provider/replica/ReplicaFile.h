// The replica's database: where it lies, its schema, what happens when it is damaged.
#pragma once

#include "linux/sqlite/Database.h"

#include <functional>

namespace brindlemar::replica {

/// The newest schema.
inline constexpr int kSchemaVersion = 4;

/// Opens `directory`/items.sqlite with the newest schema, making or migrating it. One that is damaged, or newer than
/// this program, is moved aside beside it under a name with its date, and `say` is told; nothing is deleted. Throws
/// sqlite::Error when there can be no database at all.
sqlite::Database openReplicaFile(const std::string& directory, const std::function<void(const std::string&)>& say);

/// One more connection to what openReplicaFile() has opened, which only reads.
sqlite::Database openReplicaReader(const std::string& directory);

} // namespace brindlemar::replica
