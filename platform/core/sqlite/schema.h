// Whether a database has the tables that its program makes. A flipped bit in a schema can leave a valid one,
// such as a table without its primary key, which is read but not written as its program expects.
#pragma once

#include <string>

#include "platform/core/sqlite/sqlite.h"

namespace sqlite {

// The SQL that makes the tables: those that every database has, and those that it may have.
struct Schema {
  const char* required;
  const char* optional;
};

// *damage is empty if the texts of the tables are those of the schema and no index or trigger is added to
// them; otherwise the reason. Other tables do not matter, nor do default values, which columns have that a
// migration added. SQLITE_OK or a code.
int check_schema(sqlite3* connection, const Schema& schema, std::string* damage);

// Whether the tables that `expected` has are stated in the database as there.
bool has_tables_of(sqlite3* connection, sqlite3* expected);
// States them so, without a change of their rows. SQLITE_OK or a code.
int set_tables(sqlite3* connection, sqlite3* expected);

}  // namespace sqlite
