// The configuration's database file: opened, checked, made, and brought to this version. Not for other
// folders.
#pragma once

#include <string>

#include "platform/core/base/status.h"
#include "platform/store/configuration/sqlite_statement.h"

namespace kvtree {

// Opens or makes DIRECTORY/configuration.db. A file that is no such database, is damaged or is of a newer
// version is renamed to configuration.db.unusable.N beside the new, empty one, and the log says so. kStatusIo
// (logged) when the directory or the file cannot be used for another reason. Fault points
// "configuration_open", "configuration_migrate".
[[nodiscard]] Status open_configuration(const std::string& directory, Database* database);
// One that lives as long as it is open. Fault point "configuration_open".
[[nodiscard]] Status open_configuration_in_memory(Database* database);

}  // namespace kvtree
