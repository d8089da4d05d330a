#include "platform/core/chkpt/format.h"

#include "platform/core/base/fault.h"
#include "platform/core/sqlite/schema.h"

namespace chkpt {

namespace {

static_assert(kApplicationId == 1297498960 && kVersion == 2);

// The pragmas are part of the transaction: a file that has its tables has its numbers.
#define SET_VERSION "PRAGMA application_id=1297498960; PRAGMA user_version=2;"
#define MAKE_RECORD                                                                                \
  "CREATE TABLE record(object_id INTEGER PRIMARY KEY AUTOINCREMENT, application INTEGER NOT NULL," \
  " table_id INTEGER NOT NULL, key BLOB NOT NULL, data BLOB NOT NULL, checksum INTEGER NOT NULL);"
constexpr char kSchema[] =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE application(number INTEGER PRIMARY KEY, name TEXT NOT NULL, starts INTEGER NOT "
    "NULL);" MAKE_RECORD SET_VERSION "COMMIT";
// A record of a table that does not exist becomes one of table -1, which is invalid.
constexpr char kMigrateFirst[] =
    "BEGIN IMMEDIATE; ALTER TABLE record RENAME TO former;" MAKE_RECORD
    "INSERT INTO record SELECT object_id, ifnull(application, -1), ifnull(table_id, -1), key, data,"
    " row_checksum(object_id, ifnull(application, -1), ifnull(table_id, -1), key, data)"
    " FROM former LEFT JOIN record_table ON table_row = row ORDER BY object_id;"
    "DELETE FROM sqlite_sequence WHERE name = 'record';"
    "UPDATE sqlite_sequence SET name = 'record' WHERE name = 'former';"
    "DROP TABLE former; DROP TABLE record_table;" SET_VERSION;
#undef MAKE_RECORD
#undef SET_VERSION

constexpr char kProbe[] =
    "SELECT number, name, starts, object_id, application, table_id, key, data, checksum FROM application, "
    "record";
constexpr char kProbeFirst[] =
    "SELECT number, name, starts, object_id, table_row, key, data, row, application, table_id FROM "
    "application, record, record_table";

#define PUT_SOUND                                                                                           \
  "INSERT OR IGNORE INTO record SELECT ?1, ?2, ?3, ?4, ?5, ?6 WHERE ?1 NOT NULL AND ?6 = row_checksum(?1, " \
  "?2, ?3, ?4, ?5)"
#define SELECT_RECORDS "SELECT object_id, application, table_id, key, data, checksum FROM record"
#define SELECT_FIRST                                           \
  "SELECT object_id, application, table_id, key, data,"        \
  " row_checksum(object_id, application, table_id, key, data)" \
  " FROM record CROSS JOIN record_table ON table_row = row"
constexpr sqlite::RowCopy kCopies[] = {
    {SELECT_RECORDS " ORDER BY object_id", SELECT_RECORDS " ORDER BY object_id DESC", PUT_SOUND}};
constexpr sqlite::RowCopy kCopiesFirst[] = {
    {SELECT_FIRST " ORDER BY object_id", SELECT_FIRST " ORDER BY object_id DESC", PUT_SOUND}};
#undef PUT_SOUND
#undef SELECT_RECORDS
#undef SELECT_FIRST

// The ids of lost records are not used again.
constexpr char kKeepIds[] =
    "UPDATE sqlite_sequence SET seq = min(seq + 1000, (1 << 62) - 1) WHERE name = 'record'";

constexpr sqlite::Salvage kSalvage[] = {{kSchema, kCopiesFirst, kKeepIds}, {kSchema, kCopies, kKeepIds}};

}  // namespace

int create(sqlite3* connection) {
  return sqlite::run(connection, kSchema);
}

int migrate_first(sqlite3* connection) {
  if (fault_check("chkpt_migrate") != kStatusOk) return SQLITE_IOERR;
  return sqlite::run(connection, kMigrateFirst);
}

int probe(sqlite3* connection, std::int64_t version) {
  return sqlite::Statement().prepare(connection, version == 1 ? kProbeFirst : kProbe);
}

int check_schema(sqlite3* connection, std::string* damage) {
  return sqlite::check_schema(connection, {kSchema, kMakeQuarantine}, damage);
}

const sqlite::Salvage& find_salvage(std::int64_t version) {
  return kSalvage[version == 1 ? 0 : 1];
}

}  // namespace chkpt
