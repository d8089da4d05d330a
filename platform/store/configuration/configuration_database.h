// The configuration's database file: opened, checked, created, and migrated to this version. Only for this
// folder.
#pragma once

#include <string>

#include "platform/core/base/status.h"
#include "platform/core/sqlite/sqlite.h"

namespace kvtree {

// Opens or creates DIRECTORY/configuration.db. A foreign or damaged file, or one of a newer version, is
// renamed to configuration.db.unusable.N next to the new, empty one, and logged. kStatusIo (logged) if the
// directory or the file cannot be used for another reason. Fault points "configuration_open",
// "configuration_migrate".
[[nodiscard]] Status open_configuration(const std::string& directory, sqlite::Connection* database);
// A database in memory, which exists while it is open. Fault point "configuration_open".
[[nodiscard]] Status open_configuration_in_memory(sqlite::Connection* database);

}  // namespace kvtree
