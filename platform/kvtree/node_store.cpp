// See node_store.h. One table; a rollback journal and full synchronisation, as the configuration changes
// seldom and must not be lost. Whether a file is ours is told by its application id, whether we understand it
// by its version; both, and a check of the whole file, come before anything is read from it or written to it.
#include "platform/kvtree/node_store.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/base/fault.h"
#include "platform/base/log.h"

namespace kvtree {

namespace {

constexpr int kApplicationId = 0x4d56434e;  // "MVCN"
constexpr int kVersion = 1;
constexpr char kMake[] =
    "BEGIN; CREATE TABLE node(path TEXT PRIMARY KEY NOT NULL, value NOT NULL) WITHOUT ROWID;"
    "PRAGMA application_id = 1297498958; PRAGMA user_version = 1; COMMIT;";
static_assert(kApplicationId == 1297498958 && kVersion == 1);

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

Statement prepare(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database, sql, -1, &statement,
                     nullptr);  // a failure leaves null, and the code in the database
  return Statement(statement);
}

void bind_text(sqlite3_stmt* statement, int place, std::string_view text) {
  sqlite3_bind_text64(statement, place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

std::string_view column_text(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

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
  return column_text(statement.get(), 0) == "ok" ? SQLITE_OK : SQLITE_CORRUPT;
}

// SQLITE_OK for a database that is ours, whole and of this version, which an empty file is made into.
// SQLITE_NOTADB, SQLITE_CORRUPT and SQLITE_MISMATCH are for files whose contents cannot be used.
int check_or_make(sqlite3* database) {
  int id = 0;
  int version = 0;
  int objects = 0;
  if (const int code = ask_number(database, "PRAGMA application_id", &id)) return code;
  if (const int code = ask_number(database, "PRAGMA user_version", &version)) return code;
  if (const int code = ask_number(database, "SELECT count(*) FROM sqlite_schema", &objects)) return code;
  if (id == 0 && version == 0 && objects == 0)
    return sqlite3_exec(database, kMake, nullptr, nullptr, nullptr);
  if (id != kApplicationId || version != kVersion) return SQLITE_MISMATCH;
  if (const int code = check_whole(database)) return code;
  return prepare(database, "SELECT path, value FROM node") == nullptr ? SQLITE_MISMATCH : SQLITE_OK;
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

Status NodeStore::open(const std::string& directory, std::unique_ptr<NodeStore>* store) {
  if (const Status status = fault_check("configuration_open")) return status;
  const std::string file = directory + "/configuration.db";
  Database database;
  int code = open_once(file, &database);
  if (is_unusable(code)) {
    database.reset();
    if (const int error = set_aside(file)) return fail(file + " cannot be set aside", std::strerror(error));
    code = open_once(file, &database);
  }
  if (code != SQLITE_OK) return fail(file + " cannot be opened", sqlite3_errstr(code));
  store->reset(new NodeStore(database.release()));
  return kStatusOk;
}

NodeStore::~NodeStore() {
  sqlite3_close(database_);
}

Status NodeStore::for_each(const Visitor& visit) const {
  const Statement statement = prepare(database_, "SELECT path, value FROM node ORDER BY path");
  if (statement == nullptr) return fail("the nodes cannot be read", sqlite3_errmsg(database_));
  int code = SQLITE_ROW;
  while ((code = sqlite3_step(statement.get())) == SQLITE_ROW) {
    KvValue value;
    if (sqlite3_column_type(statement.get(), 1) == SQLITE_INTEGER) {
      value.type = KvValueType::kNumber;
      value.number = sqlite3_column_int64(statement.get(), 1);
    } else {
      value.type = KvValueType::kText;
      value.text = column_text(statement.get(), 1);
    }
    visit(column_text(statement.get(), 0), std::move(value));
  }
  return code == SQLITE_DONE ? kStatusOk : fail("the nodes cannot be read", sqlite3_errmsg(database_));
}

Status NodeStore::put(std::string_view path, const KvValue& value) {
  if (const Status status = fault_check("configuration_write")) return status;
  if (value.type != KvValueType::kText && value.type != KvValueType::kNumber) return kStatusInvalid;
  const Statement statement = prepare(database_, "INSERT OR REPLACE INTO node VALUES (?, ?)");
  if (statement == nullptr) return fail("a node cannot be written", sqlite3_errmsg(database_));
  bind_text(statement.get(), 1, path);
  if (value.type == KvValueType::kText) {
    bind_text(statement.get(), 2, value.text);
  } else {
    sqlite3_bind_int64(statement.get(), 2, value.number);
  }
  if (sqlite3_step(statement.get()) == SQLITE_DONE) return kStatusOk;
  return fail("a node cannot be written", sqlite3_errmsg(database_));
}

Status NodeStore::erase(std::string_view path) {
  if (const Status status = fault_check("configuration_write")) return status;
  const Statement statement = prepare(database_, "DELETE FROM node WHERE path = ?");
  if (statement == nullptr) return fail("a node cannot be deleted", sqlite3_errmsg(database_));
  bind_text(statement.get(), 1, path);
  if (sqlite3_step(statement.get()) == SQLITE_DONE) return kStatusOk;
  return fail("a node cannot be deleted", sqlite3_errmsg(database_));
}

}  // namespace kvtree
