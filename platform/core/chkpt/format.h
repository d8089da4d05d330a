// The format of the checkpoint database and how a file of a former version, or a damaged one, becomes one of
// this version. Only for this folder.
//
//   application        number, name, starts (how often a process opened the database for it)
//   record             object id, application, table, key, data, checksum of all of them (row_checksum.h)
//   quarantine_record  invalid records, once there was one; nothing else reads it
//
// Version 1 had no checksums, a record named its table by a row of record_table, and the table of invalid
// records was `quarantine`.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "platform/core/sqlite/salvage.h"

namespace chkpt {

inline constexpr std::int64_t kApplicationId = 0x4d564350;  // identifies the file to tools
inline constexpr std::int64_t kVersion = 2;

// An id and the next one are positive as signed numbers.
inline constexpr std::int64_t kMaxObjectId = (std::int64_t{1} << 62) - 1;

inline constexpr char kMakeQuarantine[] =
    "CREATE TABLE IF NOT EXISTS quarantine_record(object_id, application, table_id, key, data, checksum)";

// The following return SQLITE_OK or a code. create() is for an empty file.
int create(sqlite3* connection);
// Begins the transaction and does not end it. Fault point "chkpt_migrate".
int migrate_first(sqlite3* connection);
// *damage is empty if the database has the tables of this version, and otherwise the reason.
int check_schema(sqlite3* connection, std::string* damage);
// SQLITE_ERROR if the database lacks the tables of the version.
int probe(sqlite3* connection, std::int64_t version);

// For a damaged file of the version; 0 if that is unknown.
const sqlite::Salvage& find_salvage(std::int64_t version);

}  // namespace chkpt
