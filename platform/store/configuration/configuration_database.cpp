// A rollback journal with full synchronization, because the configuration changes rarely and must not be
// lost. The application id identifies our files, the version their format; both, and a check of the whole
// file, precede any reading or writing. The values of version 1 (one per path) belonged to the owner of
// clients' commits; version 2 did not have the order of notifications, version 3 no checksums, version 4
// neither users, suppressed nodes nor confirmations, version 5 not `later_change`, and fewer columns in the
// quarantine. A migration is one transaction. Columns that were added
// follow the others, so that the rows of a migrated file are those of a new one.
//
// Tables. node: a value per owner and path; a number is an INTEGER, a text a TEXT, a tuple a BLOB of
// little-endian 64-bit numbers, a node without a value a NULL; `told`, the same in all rows of a path,
// increases with every commit that notifies its subscribers; a suppressed node has the value that it
// suppressed. log: the commits, with the number of nodes that the history has of them (0 for those that exist
// only until they are folded), whether the rows of `node` include it (folded), and the user's name, empty for
// commits of no user. content: the changes of a commit, encoded by commit_codec.h. confirmation: the commit
// that is undone unless it is confirmed, with the end of the time for it and its length, both in nanoseconds.
// later_change: the paths of that commit which a later one of its owner changed. Each row of them has a
// checksum of its other columns (row_checksum.h). quarantine_commit and quarantine_node exist in migrated
// files and once something was moved there (node_store.cpp).
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/sqlite/database_file.h"
#include "platform/core/sqlite/salvage.h"
#include "platform/core/sqlite/schema.h"
#include "platform/store/configuration/node_store.h"
#include "platform/store/configuration/row_checksums.h"

namespace kvtree {

namespace {

constexpr int kApplicationId = 0x4d56434e;  // "MVCN"
constexpr int kVersion = 6;
static_assert(kApplicationId == 1297498958 && kVersion == 6);
constexpr int kNewerVersion = SQLITE_SCHEMA;  // no statement of ours results in it

#define MAKE_CONFIRMATION                                                                         \
  "CREATE TABLE confirmation(commit_id INTEGER PRIMARY KEY, deadline INTEGER NOT NULL, duration " \
  "INTEGER NOT NULL, checksum INTEGER NOT NULL);"
#define MAKE_LATER_CHANGE \
  "CREATE TABLE later_change(path TEXT PRIMARY KEY, checksum INTEGER NOT NULL) WITHOUT ROWID;"
#define MAKE_TABLES                                                                                     \
  "CREATE TABLE node(path TEXT NOT NULL, owner TEXT NOT NULL, value, told INTEGER NOT NULL, "           \
  "checksum INTEGER NOT NULL, suppressed INTEGER NOT NULL DEFAULT 0, PRIMARY KEY(path, owner)) "        \
  "WITHOUT ROWID;"                                                                                      \
  "CREATE TABLE log(id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, owner TEXT NOT "       \
  "NULL, comment TEXT NOT NULL, changes INTEGER NOT NULL, octets INTEGER NOT NULL, folded INTEGER NOT " \
  "NULL, checksum INTEGER NOT NULL, user TEXT NOT NULL DEFAULT '');"                                    \
  "CREATE TABLE content(id INTEGER PRIMARY KEY, octets BLOB NOT NULL, checksum INTEGER NOT "            \
  "NULL);" MAKE_CONFIRMATION MAKE_LATER_CHANGE
#define SET_VERSION "PRAGMA application_id = 1297498958; PRAGMA user_version = 6;"
#define NODE_CHECKSUM_4 "row_checksum(path, owner, value, told)"
#define LOG_COLUMNS_4 "id, time, owner, comment, changes, octets, folded"
#define LOG_COLUMNS LOG_COLUMNS_4 ", user"
#define ADD_CHECKSUMS                                                \
  "ALTER TABLE node ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;" \
  "ALTER TABLE log ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;"  \
  "ALTER TABLE content ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;"
#define ADD_COLUMNS                                                    \
  "ALTER TABLE node ADD COLUMN suppressed INTEGER NOT NULL DEFAULT 0;" \
  "ALTER TABLE log ADD COLUMN user TEXT NOT NULL DEFAULT '';" MAKE_CONFIRMATION
// A file has them if something was moved there.
#define ADD_QUARANTINE_COLUMNS                                                                      \
  "CREATE TABLE IF NOT EXISTS quarantine_commit(id, time, owner, comment, changes, octets);"        \
  "CREATE TABLE IF NOT EXISTS quarantine_node(path, owner, value, told);"                           \
  "ALTER TABLE quarantine_commit ADD COLUMN user; ALTER TABLE quarantine_commit ADD COLUMN folded;" \
  "ALTER TABLE quarantine_node ADD COLUMN suppressed;"
#define ADD_TO_FIFTH MAKE_LATER_CHANGE ADD_QUARANTINE_COLUMNS
#define SIGN_ROWS                                       \
  "UPDATE node SET checksum = " NODE_CHECKSUM           \
  ";"                                                   \
  "UPDATE log SET checksum = row_checksum(" LOG_COLUMNS \
  ");"                                                  \
  "UPDATE content SET checksum = row_checksum(id, octets);"
// A damaged row remains one.
#define SIGN_SOUND_ROWS                                                                                  \
  "UPDATE node SET checksum = " NODE_CHECKSUM " WHERE checksum = " NODE_CHECKSUM_4                       \
  ";"                                                                                                    \
  "UPDATE log SET checksum = row_checksum(" LOG_COLUMNS ") WHERE checksum = row_checksum(" LOG_COLUMNS_4 \
  ");"
constexpr char kMake[] = "BEGIN;" MAKE_TABLES SET_VERSION "COMMIT";
constexpr char kMigrateFirst[] = "BEGIN; ALTER TABLE node RENAME TO former;" MAKE_TABLES;
constexpr char kCopyFirst[] =
    "INSERT INTO node(path, owner, value, told, checksum) SELECT path, ?1, value, 0, row_checksum(path, ?1, "
    "value, 0, 0) FROM former";
constexpr char kFinishFirst[] = "DROP TABLE former;" SET_VERSION;
// From the second version on.
constexpr const char* kMigrations[] = {
    "BEGIN; ALTER TABLE node ADD COLUMN told INTEGER NOT NULL DEFAULT 0;" ADD_CHECKSUMS ADD_COLUMNS
        ADD_TO_FIFTH SIGN_ROWS SET_VERSION,
    "BEGIN;" ADD_CHECKSUMS ADD_COLUMNS ADD_TO_FIFTH SIGN_ROWS SET_VERSION,
    "BEGIN;" ADD_COLUMNS ADD_TO_FIFTH SIGN_SOUND_ROWS SET_VERSION, "BEGIN;" ADD_TO_FIFTH SET_VERSION};
static_assert(std::size(kMigrations) == kVersion - 2);
#undef MAKE_CONFIRMATION
#undef MAKE_LATER_CHANGE
#undef ADD_QUARANTINE_COLUMNS
#undef ADD_TO_FIFTH
#undef MAKE_TABLES
#undef SET_VERSION
#undef ADD_CHECKSUMS
#undef ADD_COLUMNS
#undef SIGN_ROWS
#undef SIGN_SOUND_ROWS

#define PROBE_THIRD                                                                                 \
  "SELECT node.path, node.owner, node.value, node.told, log.id, log.time, log.owner, log.comment, " \
  "log.changes, log.octets, log.folded, content.id, content.octets"
#define PROBE_FOURTH PROBE_THIRD ", node.checksum, log.checksum, content.checksum"
// By version.
constexpr const char* kProbes[] = {
    "SELECT path, value FROM node", "SELECT path, owner, value FROM node",
    PROBE_THIRD " FROM node, log, content", PROBE_FOURTH " FROM node, log, content",
    PROBE_FOURTH
    ", node.suppressed, log.user, confirmation.commit_id, confirmation.deadline, confirmation.duration, "
    "confirmation.checksum FROM node, log, content, confirmation"};
static_assert(std::size(kProbes) == kVersion - 1);
#undef PROBE_THIRD
#undef PROBE_FOURTH
// `told` starts with an id (node_store.cpp).
constexpr sqlite::Sequence kCommitIds = {
    "log", kMaxCommitId,
    "SELECT max((SELECT coalesce(max(id), 0) FROM log WHERE checksum = row_checksum(" LOG_COLUMNS
    ")), (SELECT coalesce(max(told), 0) >> 20 FROM node WHERE checksum = " NODE_CHECKSUM "))"};

// Of a former version.
bool has_tables(sqlite3* database, std::int64_t version) {
  return bool(sqlite::Statement(database, kProbes[version - 1]));
}

// A transaction larger than SQLite's cache synchronizes the disk each time that the cache is full. Commits
// are bounded and may use as much memory as they need; a migration changes everything.
constexpr char kOneWritePerPage[] = "PRAGMA cache_spill=OFF";
constexpr char kLargeCache[] = "PRAGMA cache_size=-65536";  // KiB
constexpr char kDefaultCache[] = "PRAGMA cache_size=-2000";

int migrate_first(sqlite3* database) {
  if (const int code = sqlite::run(database, kMigrateFirst)) return code;
  sqlite::Statement copy(database, kCopyFirst);
  copy.bind_text(1, client_owner());
  if (const int code = copy.finish()) return code;
  if (const int code = sqlite::run(database, kFinishFirst)) return code;
  log_notice("configuration", "the values of version 1 now belong to \"%s\"",
             std::string(client_owner()).c_str());
  return SQLITE_OK;
}

// Leaves an open transaction, which closing the database rolls back.
int migrate(sqlite3* database, std::int64_t version) {
  if (!has_tables(database, version)) return SQLITE_MISMATCH;
  if (fault_check("configuration_migrate") != kStatusOk) return SQLITE_IOERR;
  if (const int code = sqlite::run(database, kLargeCache)) return code;
  const int code = version == 1 ? migrate_first(database) : sqlite::run(database, kMigrations[version - 2]);
  return code == SQLITE_OK ? sqlite::run(database, kDefaultCache) : code;
}

// SQLITE_OK for an empty file and for a complete database of ours of a version that this release reads.
// SQLITE_NOTADB, SQLITE_CORRUPT, SQLITE_MISMATCH and SQLITE_ERROR (a schema that SQLite does not know) are
// for files with unusable contents, kNewerVersion for a file that only a newer release can use.
int check(sqlite3* database, sqlite::Identity* identity) {
  if (const int code = sqlite::read_identity(database, identity)) return code;
  if (sqlite::has_unwritable_format(database)) return SQLITE_NOTADB;
  if (identity->is_blank()) return SQLITE_OK;
  if (identity->application != kApplicationId || identity->version < 1) return SQLITE_MISMATCH;
  if (identity->version > kVersion) return kNewerVersion;
  std::string damage;
  if (const int code = sqlite::check_contents(database, &damage)) return code;
  return damage.empty() ? SQLITE_OK : SQLITE_CORRUPT;
}

int correct_sequence(sqlite3* database) {
  std::int64_t corrected = 0;
  const int code = sqlite::correct_sequence(database, kCommitIds, &corrected);
  if (corrected > 0) {
    log_warning("configuration", "%s has an invalid sequence of commits: it continues at %lld",
                sqlite3_db_filename(database, "main"), static_cast<long long>(corrected));
  }
  return code;
}

int check_schema(sqlite3* database) {
  std::string damage;
  const int code = sqlite::check_schema(database, {kMake, kMakeQuarantine}, &damage);
  if (code != SQLITE_OK || damage.empty()) return code;
  log_warning("configuration", "%s: %s", sqlite3_db_filename(database, "main"), damage.c_str());
  return SQLITE_MISMATCH;
}

// Initializes an empty file and migrates a former version.
int complete(sqlite3* database, const sqlite::Identity& identity) {
  if (identity.is_blank()) return sqlite::run(database, kMake);
  const bool is_former = identity.version < kVersion;
  if (const int code = is_former ? migrate(database, identity.version) : SQLITE_OK) return code;
  if (const int code = check_schema(database)) return code;
  if (const int code = is_former ? sqlite::run(database, "COMMIT") : SQLITE_OK) return code;
  return correct_sequence(database);
}

bool is_unusable(int code) {
  const int primary = sqlite::primary(code);
  return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT || primary == SQLITE_MISMATCH ||
         primary == SQLITE_ERROR;
}

// The lock is a transaction for writing, in which SQLite corrects a wrong page count of the file's header:
// only a file that is going to be used gets it.
int open_once(const std::string& file, sqlite::Connection* database, std::int64_t* version) {
  if (const int code = sqlite::open(file, database)) return code;
  sqlite::Identity identity;
  const int code = check(database->get(), &identity);
  *version = identity.application == kApplicationId ? identity.version : 0;
  if (code != SQLITE_OK) return code;
  if (const int locked = sqlite::lock_for_this_process(database->get())) return locked;
  if (const int completed = complete(database->get(), identity)) return completed;
  return sqlite::run(database->get(), kOneWritePerPage);
}

#define COPY_NODES(VALUES, CHECKSUM)                                                                         \
  {                                                                                                          \
    "SELECT path, owner, " VALUES ", " CHECKSUM " FROM node ORDER BY path, owner",                           \
        "SELECT path, owner, " VALUES ", " CHECKSUM " FROM node ORDER BY path DESC, owner DESC",             \
        "INSERT OR IGNORE INTO node(path, owner, value, told, suppressed, checksum) SELECT ?1, ?2, ?3, ?4, " \
        "?5, ?6 WHERE ?6 = row_checksum(?1, ?2, ?3, ?4, ?5)"                                                 \
  }
#define COPY_LOG(COLUMNS, CHECKSUM)                                               \
  {                                                                               \
    "SELECT " COLUMNS ", " CHECKSUM " FROM log ORDER BY id",                      \
        "SELECT " COLUMNS ", " CHECKSUM " FROM log ORDER BY id DESC",             \
        "INSERT OR IGNORE INTO log(" LOG_COLUMNS                                  \
        ", checksum) SELECT ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9 "                  \
        "WHERE ?1 NOT NULL AND ?9 = row_checksum(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)" \
  }
#define COPY_CONTENT(CHECKSUM)                                                                            \
  {                                                                                                       \
    "SELECT id, octets, " CHECKSUM " FROM content ORDER BY id",                                           \
        "SELECT id, octets, " CHECKSUM " FROM content ORDER BY id DESC",                                  \
        "INSERT OR IGNORE INTO content SELECT ?1, ?2, ?3 WHERE ?1 NOT NULL AND ?3 = row_checksum(?1, ?2)" \
  }
#define NEW_LOG_CHECKSUM "row_checksum(" LOG_COLUMNS_4 ", '')"
#define NEW_NODE_CHECKSUM "row_checksum(path, owner, value, told, 0)"
constexpr sqlite::RowCopy kCopyConfirmation = {
    "SELECT commit_id, deadline, duration, checksum FROM confirmation ORDER BY commit_id",
    "SELECT commit_id, deadline, duration, checksum FROM confirmation ORDER BY commit_id DESC",
    "INSERT OR IGNORE INTO confirmation SELECT ?1, ?2, ?3, ?4 WHERE ?1 NOT NULL AND ?4 = row_checksum(?1, "
    "?2, ?3)"};
constexpr sqlite::RowCopy kCopyLaterChanges = {
    "SELECT path, checksum FROM later_change ORDER BY path",
    "SELECT path, checksum FROM later_change ORDER BY path DESC",
    "INSERT OR IGNORE INTO later_change SELECT ?1, ?2 WHERE ?2 = row_checksum(?1)"};
constexpr sqlite::RowCopy kCopies[] = {COPY_NODES("value, told, suppressed", "checksum"),
                                       COPY_LOG(LOG_COLUMNS, "checksum"), COPY_CONTENT("checksum"),
                                       kCopyConfirmation, kCopyLaterChanges};
constexpr std::span kCopiesFifth = std::span(kCopies).first<4>();
// No checksum, which matches nothing, for a damaged row.
constexpr sqlite::RowCopy kCopiesFourth[] = {
    COPY_NODES("value, told, 0", "CASE checksum WHEN " NODE_CHECKSUM_4 " THEN " NEW_NODE_CHECKSUM " END"),
    COPY_LOG(LOG_COLUMNS_4 ", ''",
             "CASE checksum WHEN row_checksum(" LOG_COLUMNS_4 ") THEN " NEW_LOG_CHECKSUM " END"),
    COPY_CONTENT("checksum")};
constexpr sqlite::RowCopy kCopiesThird[] = {COPY_NODES("value, told, 0", NEW_NODE_CHECKSUM),
                                            COPY_LOG(LOG_COLUMNS_4 ", ''", NEW_LOG_CHECKSUM),
                                            COPY_CONTENT("row_checksum(id, octets)")};
constexpr sqlite::RowCopy kCopiesSecond[] = {
    COPY_NODES("value, 0, 0", "row_checksum(path, owner, value, 0, 0)"),
    COPY_LOG(LOG_COLUMNS_4 ", ''", NEW_LOG_CHECKSUM), COPY_CONTENT("row_checksum(id, octets)")};
#undef COPY_NODES
#undef COPY_LOG
#undef COPY_CONTENT
#undef NEW_LOG_CHECKSUM
#undef NEW_NODE_CHECKSUM
#undef NODE_CHECKSUM_4
#undef LOG_COLUMNS
#undef LOG_COLUMNS_4
// Ids of commits whose records are lost are not used again; `told` starts with an id (node_store.cpp).
constexpr char kKeepIds[] =
    "DELETE FROM content WHERE id NOT IN (SELECT id FROM log);"
    "DELETE FROM confirmation WHERE commit_id NOT IN (SELECT id FROM log);"
    "DELETE FROM later_change WHERE NOT EXISTS (SELECT 1 FROM confirmation);"
    "INSERT INTO sqlite_sequence SELECT 'log', 0 WHERE NOT EXISTS (SELECT 1 FROM sqlite_sequence WHERE name "
    "= "
    "'log');"
    "UPDATE sqlite_sequence SET seq = max(seq, coalesce((SELECT max(told) >> 20 FROM node), 0)) + 1000 WHERE "
    "name = 'log'";

// From the second version on.
constexpr sqlite::Salvage kSalvage[] = {{kMake, kCopiesSecond, kKeepIds},
                                        {kMake, kCopiesThird, kKeepIds},
                                        {kMake, kCopiesFourth, kKeepIds},
                                        {kMake, kCopiesFifth, kKeepIds},
                                        {kMake, kCopies, kKeepIds}};
static_assert(std::size(kSalvage) == kVersion - 1);

// A file whose first page is damaged is of this version or of a former one whose rows have checksums, too: at
// an upgrade the former release has written it.
constexpr sqlite::RowCopy kCopiesOfEither[] = {kCopies[0], kCopies[1],       kCopies[2],      kCopies[3],
                                               kCopies[4], kCopiesFourth[0], kCopiesFourth[1]};
constexpr sqlite::Salvage kSalvageOfEither = {kMake, kCopiesOfEither, kKeepIds};

const sqlite::Salvage& find_salvage(std::int64_t version) {
  return version >= 2 && version <= kVersion ? kSalvage[version - 2] : kSalvageOfEither;
}

Status fail(const std::string& what, const char* why, Status status = kStatusIo) {
  log_error("configuration", "%s: %s", what.c_str(), why);
  return status;
}

Status fail_to_open(const std::string& file, sqlite3* database, int code) {
  return fail(file + " cannot be opened", sqlite::reason_of(database, code).c_str(),
              sqlite::status_of(database, code));
}

}  // namespace

Status open_configuration(const std::string& directory, sqlite::Connection* database) {
  if (const Status status = fault_check("configuration_open")) return status;
  const std::string file = directory + "/configuration.db";
  // A former process may have ended after it moved the damaged file aside.
  if (!sqlite::finish_salvage(file)) return fail(file + ".salvaged cannot be renamed", std::strerror(errno));
  std::int64_t version = 0;
  int code = open_once(file, database, &version);
  if (code == kNewerVersion)
    return fail(file + " cannot be opened", sqlite::describe_newer(version, kVersion).c_str(), ENOTSUP);
  if (is_unusable(code)) {
    database->reset();
    std::size_t rows = 0;
    if (version != 1 && !sqlite::salvage(file, find_salvage(version), &rows))
      return fail(file + " is damaged", (file + ".salvaged cannot be written").c_str());
    if (rows == 0) sqlite::remove_salvaged(file);
    const std::string aside = sqlite::set_aside(file);
    if (aside.empty()) return fail(file + " cannot be set aside", std::strerror(errno));
    if (rows > 0) {
      if (!sqlite::use_salvaged(file))
        return fail(file + ".salvaged cannot be renamed", std::strerror(errno));
      log_error("configuration",
                "%s is damaged and is stored as %s; starting with the %zu rows that can be read",
                file.c_str(), aside.c_str(), rows);
    } else {
      log_warning("configuration", "%s cannot be used and is stored as %s; starting with an empty one",
                  file.c_str(), aside.c_str());
    }
    code = open_once(file, database, &version);
  }
  if (sqlite::primary(code) == SQLITE_BUSY) {
    database->reset();
    return fail(file + " cannot be opened", sqlite::describe_lock(file).c_str(), EBUSY);
  }
  return code == SQLITE_OK ? kStatusOk : fail_to_open(file, database->get(), code);
}

Status open_configuration_in_memory(sqlite::Connection* database) {
  if (const Status status = fault_check("configuration_open")) return status;
  std::int64_t version = 0;
  const int code = open_once(":memory:", database, &version);
  return code == SQLITE_OK ? kStatusOk : fail("no database in memory", sqlite3_errstr(code));
}

}  // namespace kvtree
