// Configuration values in columns of the database. Only for this folder.
#pragma once

#include "platform/core/sqlite/sqlite.h"
#include "platform/core/wire/wire.h"
#include "platform/store/tree/kvtree.h"

namespace kvtree {

// The octets must live until the statement has run.
void bind_value(sqlite::Statement& statement, int place, const KvValue& value, wire::Octets* octets);
// False for a value that the configuration cannot have.
bool column_value(sqlite::Statement& statement, int column, KvValue* value);

}  // namespace kvtree
