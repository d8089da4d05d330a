//
// A rollback journal and full synchronisation, as the configuration changes seldom and must not be lost.
// Whether a file is ours is told by its application id, whether we understand it by its version; both, and a
// check of the whole file, come before anything is read from it or written to it. What version 1 held (one
// value a path) belonged to the command line; version 2 did not say when a node was told. All of a migration
// is one transaction.
//
// Tables. node: a value an owner and path; a number is an INTEGER, a text a TEXT, a tuple a BLOB of
// little-endian 64-bit numbers, a node without a value a NULL; `told`, the same in all rows of a path, grows
// with every commit that tells its subscribers of it. log: the commits, with the number of nodes
// whose value in force changed (0 stands for those that are there only until they are folded) and whether the
// rows of `node` have it (folded). content: what a commit changed, encoded by commit_codec.h.
#include "platform/store/configuration/configuration_database.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"

namespace kvtree {

namespace {

constexpr int kApplicationId = 0x4d56434e;  // "MVCN"
constexpr int kVersion = 3;
static_assert(kApplicationId == 1297498958 && kVersion == 3);

#define MAKE_TABLES                                                                                      \
  "CREATE TABLE node(path TEXT NOT NULL, owner TEXT NOT NULL, value, told INTEGER NOT NULL, PRIMARY "    \
  "KEY(path, owner)) WITHOUT "                                                                           \
  "ROWID; CREATE TABLE log(id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, owner TEXT NOT " \
  "NULL, comment TEXT NOT NULL, changes INTEGER NOT NULL, octets INTEGER NOT NULL, folded INTEGER NOT "  \
  "NULL);"                                                                                               \
  "CREATE TABLE content(id INTEGER PRIMARY KEY, octets BLOB NOT NULL);"
#define SET_VERSION "PRAGMA application_id = 1297498958; PRAGMA user_version = 3; COMMIT;"
constexpr char kMake[] = "BEGIN;" MAKE_TABLES SET_VERSION;
constexpr char kMigrateFirst[] =
    "BEGIN; ALTER TABLE node RENAME TO former;" MAKE_TABLES
    "INSERT INTO node(path, owner, value, told) SELECT path, 'cli', value, 0 FROM former; "
    "DROP TABLE former;" SET_VERSION;
constexpr char kMigrateSecond[] =
    "BEGIN; ALTER TABLE node ADD COLUMN told INTEGER NOT NULL DEFAULT 0;" SET_VERSION;
#undef MAKE_TABLES
#undef SET_VERSION

constexpr char kProbe[] =
    "SELECT node.path, node.owner, node.value, node.told, log.id, log.time, log.owner, log.comment, "
    "log.changes, "
    "log.octets, log.folded, content.id, content.octets FROM node, log, content";
constexpr char kFirstProbe[] = "SELECT path, value FROM node";
constexpr char kSecondProbe[] = "SELECT path, owner, value FROM node";

// The one number that a statement answers; the SQLite code.
int ask_number(sqlite3* database, const char* sql, int* number) {
  const Statement statement = prepare(database, sql);
  if (statement == nullptr) return sqlite3_errcode(database);
  const int code = sqlite3_step(statement.get());
  if (code != SQLITE_ROW) return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
  *number = sqlite3_column_int(statement.get(), 0);
  return SQLITE_OK;
}

int check_whole(sqlite3* database) {
  const Statement statement = prepare(database, "PRAGMA quick_check(1)");
  if (statement == nullptr) return sqlite3_errcode(database);
  const int code = sqlite3_step(statement.get());
  if (code != SQLITE_ROW) return code == SQLITE_DONE ? SQLITE_CORRUPT : code;
  return column_text(statement, 0) == "ok" ? SQLITE_OK : SQLITE_CORRUPT;
}

int migrate(sqlite3* database, int version) {
  const bool is_first = version == 1;
  if (prepare(database, is_first ? kFirstProbe : kSecondProbe) == nullptr) return SQLITE_MISMATCH;
  if (fault_check("configuration_migrate") != kStatusOk) return SQLITE_IOERR;
  const int code =
      sqlite3_exec(database, is_first ? kMigrateFirst : kMigrateSecond, nullptr, nullptr, nullptr);
  if (code == SQLITE_OK && is_first)
    log_line("configuration: what version 1 held belongs to the command line from here");
  return code;  // closing it takes back what was not committed
}

// SQLITE_OK for a database that is ours, whole and of this version, which an empty file is made into and a
// former version brought to. SQLITE_NOTADB, SQLITE_CORRUPT and SQLITE_MISMATCH are for files whose contents
// cannot be used.
int check_or_make(sqlite3* database) {
  int id = 0;
  int version = 0;
  int objects = 0;
  if (const int code = ask_number(database, "PRAGMA application_id", &id)) return code;
  if (const int code = ask_number(database, "PRAGMA user_version", &version)) return code;
  if (const int code = ask_number(database, "SELECT count(*) FROM sqlite_schema", &objects)) return code;
  if (id == 0 && version == 0 && objects == 0)
    return sqlite3_exec(database, kMake, nullptr, nullptr, nullptr);
  if (id != kApplicationId || version < 1 || version > kVersion) return SQLITE_MISMATCH;
  if (const int code = check_whole(database)) return code;
  if (version < kVersion) {
    if (const int code = migrate(database, version)) return code;
  }
  return prepare(database, kProbe) == nullptr ? SQLITE_MISMATCH : SQLITE_OK;
}

bool is_unusable(int code) {
  const int primary = code & 0xff;
  return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT || primary == SQLITE_MISMATCH;
}

// An error number, or 0.
int set_aside(const std::string& file) {
  std::string aside;
  for (int n = 1; aside.empty() || access(aside.c_str(), F_OK) == 0; ++n)
    aside = file + ".unusable." + std::to_string(n);
  if (std::rename(file.c_str(), aside.c_str()) != 0) return errno;
  // A journal belongs to the file that it was written for; applied to a new one it would destroy that.
  if (std::rename((file + "-journal").c_str(), (aside + "-journal").c_str()) != 0 && errno != ENOENT)
    return errno;
  log_line("configuration: %s cannot be used and is kept as %s; starting with an empty one", file.c_str(),
           aside.c_str());
  return 0;
}

int open_once(const std::string& file, Database* database) {
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  database->reset(opened);
  return code != SQLITE_OK ? code : check_or_make(opened);
}

Status fail(const std::string& what, const char* why) {
  log_line("configuration: %s: %s", what.c_str(), why);
  return kStatusIo;
}

}  // namespace

Status open_configuration(const std::string& directory, Database* database) {
  if (const Status status = fault_check("configuration_open")) return status;
  const std::string file = directory + "/configuration.db";
  int code = open_once(file, database);
  if (is_unusable(code)) {
    database->reset();
    if (const int error = set_aside(file)) return fail(file + " cannot be set aside", std::strerror(error));
    code = open_once(file, database);
  }
  if (code != SQLITE_OK) return fail(file + " cannot be opened", sqlite3_errstr(code));
  return kStatusOk;
}

Status open_configuration_in_memory(Database* database) {
  if (const Status status = fault_check("configuration_open")) return status;
  const int code = open_once(":memory:", database);
  return code == SQLITE_OK ? kStatusOk : fail("no database in memory", sqlite3_errstr(code));
}

}  // namespace kvtree
