// What every database file of this system has: an identity, a check of its contents, and a place for a file
// that cannot be used.
#pragma once

#include <string>

#include "platform/core/sqlite/sqlite.h"

namespace sqlite {

// The first column of the statement's only row. SQLITE_OK or a code; SQLITE_CORRUPT without a row.
int read_integer(sqlite3* connection, const char* sql, std::int64_t* value);

struct Identity {
  std::int64_t application = 0;
  std::int64_t version = 0;
  std::int64_t objects = 0;  // tables, indexes, ...
  bool is_blank() const { return application == 0 && version == 0 && objects == 0; }
};
int read_identity(sqlite3* connection, Identity* identity);

// Checks every page. *damage is empty for a sound database, otherwise the reason.
int check_contents(sqlite3* connection, std::string* damage);

// Whether the header of the file has a format that SQLite can only read. False for a file that the system
// does not let this process write.
bool has_unwritable_format(sqlite3* connection);

// Why a database of a newer version than `supported` is not opened, for a message.
std::string describe_newer(std::int64_t version, std::int64_t supported);

// The ids of a table with AUTOINCREMENT: no more than `maximum`. `highest` selects the highest that was used.
struct Sequence {
  const char* table;
  std::int64_t maximum;
  const char* highest;
};
// Corrects an impossible sequence, which would prevent new rows or give them impossible ids. Returns a code;
// *corrected is the last id that is considered used, 0 for a sequence that is sound.
int correct_sequence(sqlite3* connection, const Sequence& sequence, std::int64_t* corrected);

// The size of the file, or -1.
std::int64_t file_size(const std::string& path);

// Why a database is busy, for a message: "process 123 has it locked: ...". The database must be closed.
std::string describe_lock(const std::string& path);

// Renames a database that cannot be used, with its journal and log, to PATH.unusable.N. Returns the new name,
// or an empty one and errno. The database must be closed.
std::string set_aside(const std::string& path);

}  // namespace sqlite
