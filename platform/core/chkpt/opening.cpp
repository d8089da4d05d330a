// Opening the checkpoint database.
//
// A file is not changed before it is known to be ours (application id), of a known version (user version),
// sound (quick_check) and readable in full. A file with invalid contents is renamed with its log to
// checkpoint.db.unusable.N; an invalid record is only moved to a table of its own. SQLite would delete a log
// next to an empty or missing file, so that case is checked before SQLite opens anything. Closing must not
// write the log back into a damaged file either, so that is disabled until the database is in use. A file of
// a newer version is left alone and fails the open: an older release that started without it would lose what
// the newer one stored.
//
// Errors of the system (no permission, read-only, full, locked by another process) fail the open and leave
// the file alone. Every open writes one row, so that a full or read-only disk fails the start and not the
// first change. The start does not wait until that row is on the disk: the first commit includes it.
//
// WAL with synchronous=FULL: a commit is one write to the log and one synchronization. Exclusive locking
// admits one process at a time and needs no shared-memory file.
#include "platform/core/chkpt/database.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <span>
#include <utility>

#include "platform/core/base/log.h"
#include "platform/core/chkpt/format.h"
#include "platform/core/files/private_files.h"
#include "platform/core/sqlite/database_file.h"

namespace chkpt {

namespace {

constexpr char kSettings[] = "PRAGMA locking_mode=EXCLUSIVE; PRAGMA trusted_schema=OFF";

// SQLite does not distinguish an unwritable directory from a missing one, so this does.
Status make_directory(const std::string& directory) {
  if (const Status status = prepare_directory(directory, kStateDirectoryMode)) return status;
  const bool is_usable = faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
  return is_usable ? kStatusOk : static_cast<Status>(errno);
}

constexpr char kCopyToQuarantine[] =
    "INSERT INTO quarantine_record SELECT object_id, application, table_id, key, data, checksum FROM record "
    "WHERE "
    "object_id = ?1";
constexpr char kDeleteRecord[] = "DELETE FROM record WHERE object_id = ?1";
// take_record() takes the valid records.
constexpr char kInvalidRecords[] =
    "SELECT object_id FROM record WHERE NOT take_record(object_id, application, table_id, key, data, "
    "checksum) "
    "ORDER BY object_id";
constexpr sqlite::Sequence kObjectIds = {"record", kMaxObjectId,
                                         "SELECT coalesce(max(object_id), 0) FROM record"};

std::string put_statement(std::size_t rows) {
  constexpr char kRow[] = "(?,?,?,?,?,?)";
  std::string statement = std::string("REPLACE INTO record VALUES") + kRow;
  for (std::size_t row = 1; row < rows; ++row) statement.append(",").append(kRow);
  return statement;
}

bool is_number(sqlite3_value* value) {
  const std::int64_t number = sqlite3_value_int64(value);
  return number >= 0 && number <= std::numeric_limits<std::uint32_t>::max();
}

bool is_blob(sqlite3_value* value) {
  return sqlite3_value_type(value) == SQLITE_BLOB;
}

std::uint32_t number_of(sqlite3_value* value) {
  return static_cast<std::uint32_t>(sqlite3_value_int64(value));
}

std::string_view octets_of(sqlite3_value* value) {
  const auto* const octets = static_cast<const char*>(sqlite3_value_blob(value));
  return {octets, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

// The values of a row. False for an invalid record.
bool take_record(std::span<sqlite3_value*> row, Contents* contents) {
  const std::int64_t id = sqlite3_value_int64(row[0]);
  if (id <= 0 || id > kMaxObjectId || !is_number(row[1]) || !is_number(row[2]) || !is_blob(row[3]) ||
      !is_blob(row[4]))
    return false;
  const auto object_id = static_cast<std::uint64_t>(id);
  const TableName table{number_of(row[1]), number_of(row[2])};
  const std::string_view key = octets_of(row[3]);
  const std::string_view data = octets_of(row[4]);
  if (sqlite3_value_int64(row[5]) != checksum_of(object_id, table, key, data)) return false;
  Record* const record = add(&contents->records[table], object_id, key);
  if (record == nullptr) return false;
  record->data = data;
  contents->last_object_id = object_id;
  return true;
}

int define_take_record(sqlite3* connection, Contents* contents) {
  const auto take = [](sqlite3_context* context, int count, sqlite3_value** values) {
    auto* const to = static_cast<Contents*>(sqlite3_user_data(context));
    sqlite3_result_int(context, take_record({values, static_cast<std::size_t>(count)}, to) ? 1 : 0);
  };
  return sqlite3_create_function_v2(connection, "take_record", 6, SQLITE_UTF8, contents, take, nullptr,
                                    nullptr, nullptr);
}

// Whether the code reports damaged contents of the file, rather than an error of the system.
bool is_damage(int code) {
  const int primary = sqlite::primary(code);
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || code == SQLITE_IOERR_SHORT_READ;
}

}  // namespace

// One attempt to open the file. Exactly one of `unusable`, `refusal` and `status` says why it failed.
class Opening {
 public:
  explicit Opening(std::string path) : path_(std::move(path)), database_(std::make_unique<Database>()) {}

  bool open(Contents* contents) {
    if (sqlite::file_size(path_) <= 0 && sqlite::file_size(path_ + "-wal") > 0)
      return damaged("its write-ahead log exists without it");
    return connect() && identify() && (blank_ ? create() : open_existing(contents)) && prepare();
  }
  std::unique_ptr<Database> take() { return std::move(database_); }

  std::string unusable;  // why the contents cannot be used
  std::string refusal;   // why the file is left alone although its contents may be usable
  Status status = kStatusOk;
  std::int64_t version = 0;  // of a database of ours that this release reads

 private:
  bool damaged(std::string why) {
    unusable = std::move(why);
    return false;
  }
  bool open_existing(Contents* contents) {
    return check() && passed(probe(connection(), version)) &&
           (version == kVersion ? has_our_schema() : migrate()) && load(contents) && write_ahead() &&
           (invalid_.empty() || quarantine()) &&
           passed(sqlite::read_quarantine(connection(), &contents->quarantine)) && correct_sequence(contents);
  }
  bool has_our_schema() {
    std::string damage;
    if (!passed(check_schema(connection(), &damage))) return false;
    return damage.empty() || damaged(damage);
  }
  // True for success; else sets what failed.
  bool passed(int code) {
    if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return true;
    if (is_damage(code) || sqlite::primary(code) == SQLITE_ERROR) {
      unusable = connection() == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(connection());
    } else {
      status = sqlite::status_of(connection(), code);
    }
    return false;
  }
  sqlite3* connection() { return database_->connection_.get(); }

  bool connect() {
    if (!passed(sqlite::open(path_, &database_->connection_))) return false;
    sqlite3* const made = connection();
    // SQLite opens a file without write permission read-only and reports no error.
    if (sqlite3_db_readonly(made, "main") == 1) {
      status = access(path_.c_str(), W_OK) != 0 ? static_cast<Status>(errno) : Status{EROFS};
      return false;
    }
    return passed(sqlite3_db_config(made, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr)) &&
           passed(sqlite::run(made, kSettings)) && passed(sqlite::run(made, Database::kSynchronous));
  }

  bool identify() {
    sqlite::Identity identity;
    if (!passed(sqlite::read_identity(connection(), &identity))) return false;
    if (sqlite::has_unwritable_format(connection())) return damaged("its format can only be read");
    blank_ = identity.is_blank();
    if (blank_) return true;
    if (identity.application != kApplicationId) return damaged("it is not a checkpoint database");
    if (identity.version > kVersion) {
      refusal = sqlite::describe_newer(identity.version, kVersion);
      return false;
    }
    if (identity.version < 1) return damaged("it is of version " + std::to_string(identity.version));
    version = identity.version;
    return true;
  }

  bool write_ahead() {
    sqlite::Statement query;
    if (!passed(query.prepare(connection(), "PRAGMA journal_mode=WAL")) || !passed(query.step()))
      return false;
    if (query.octets(0) == "wal") return true;
    status = kStatusIo;
    return false;
  }

  // SQLITE_ERROR of our own statements on a new file cannot be an error of the contents.
  bool create() {
    if (write_ahead() && passed(chkpt::create(connection()))) return true;
    if (status == kStatusOk) status = kStatusIo;
    unusable.clear();
    return false;
  }

  bool check() {
    std::string damage;
    if (!passed(sqlite::check_contents(connection(), &damage))) return false;
    return damage.empty() || damaged(damage);
  }

  bool migrate() {
    if (!write_ahead() || !passed(migrate_first(connection())) || !has_our_schema() ||
        !passed(sqlite::run(connection(), "COMMIT")))
      return false;
    log_notice("chkpt", "%s is now of version %lld", path_.c_str(), static_cast<long long>(kVersion));
    return true;
  }

  // Passes every row to `take`, which returns false for an invalid record.
  template <typename Take>
  bool for_each_row(const char* sql, Take take) {
    sqlite::Statement query;
    if (!passed(query.prepare(connection(), sql))) return false;
    int code = query.step();
    for (; code == SQLITE_ROW; code = query.step()) {
      if (!take(query)) invalid_.push_back(query.integer(0));
    }
    return passed(code);
  }

  // Moves the invalid records to a table that nothing else reads.
  bool quarantine() {
    if (!passed(sqlite::run(connection(), "BEGIN IMMEDIATE")) ||
        !passed(sqlite::run(connection(), kMakeQuarantine)))
      return false;
    for (const char* sql : {kCopyToQuarantine, kDeleteRecord}) {
      sqlite::Statement move(connection(), sql);
      for (const std::int64_t id : invalid_) {
        move.bind(1, id);
        if (!passed(move.finish())) return false;
      }
    }
    if (!passed(sqlite::run(connection(), "COMMIT"))) return false;
    log_error(
        "chkpt",
        "%zu records are invalid, the first is %lld: they are stored in the table quarantine_record of %s "
        "and have no effect",
        invalid_.size(), static_cast<long long>(invalid_.front()), path_.c_str());
    return true;
  }

  bool load(Contents* contents) {
    const auto take_application = [contents](sqlite::Statement& row) {
      contents->applications[static_cast<std::uint32_t>(row.integer(0))] = row.octets(1);
      return true;
    };
    return for_each_row("SELECT number, name FROM application", take_application) && load_records(contents);
  }

  bool load_records(Contents* contents) {
    return passed(define_take_record(connection(), contents)) &&
           for_each_row(kInvalidRecords, [](sqlite::Statement&) { return false; });
  }

  // Deleted records count too: an object id is never reused.
  bool correct_sequence(Contents* contents) {
    std::int64_t corrected = 0;
    if (!passed(sqlite::correct_sequence(connection(), kObjectIds, &corrected))) return false;
    if (corrected > 0) {
      log_warning("chkpt", "%s has an invalid sequence of object ids: it continues at %lld", path_.c_str(),
                  static_cast<long long>(corrected));
    }
    return for_each_row("SELECT seq FROM sqlite_sequence WHERE name = 'record'",
                        [contents](sqlite::Statement& row) {
                          contents->last_object_id =
                              std::max(contents->last_object_id, static_cast<std::uint64_t>(row.integer(0)));
                          return true;
                        });
  }

  bool prepare() {
    sqlite3* const to = connection();
    return passed(database_->begin_.prepare(to, "BEGIN IMMEDIATE")) &&
           passed(database_->commit_.prepare(to, "COMMIT")) &&
           passed(database_->put_one_.prepare(to, put_statement(1).c_str())) &&
           passed(database_->put_many_.prepare(to, put_statement(kRowsOfStatement).c_str())) &&
           passed(database_->delete_.prepare(to, kDeleteRecord));
  }

  std::string path_;
  std::unique_ptr<Database> database_;
  bool blank_ = false;
  std::vector<std::int64_t> invalid_;  // object ids of records
};

namespace {

Status report(const std::string& what, Status status) {
  log_error("chkpt", "%s: %s", what.c_str(), err_text(status));
  return status;
}

// Replaces the file by one with what can be read in it, or by none.
Status replace(const std::string& path, const std::string& why, std::int64_t version) {
  std::size_t records = 0;
  if (!sqlite::salvage(path, find_salvage(version), &records))
    return report(path + " is damaged (" + why + "), " + path + ".salvaged cannot be written", kStatusIo);
  if (records == 0) sqlite::remove_salvaged(path);
  const std::string aside = sqlite::set_aside(path);
  if (aside.empty())
    return report(path + " cannot be used (" + why + ") nor set aside", static_cast<Status>(errno));
  if (records == 0) {
    log_warning("chkpt", "%s cannot be used (%s): it is set aside as %s", path.c_str(), why.c_str(),
                aside.c_str());
    return kStatusOk;
  }
  if (!sqlite::use_salvaged(path))
    return report(path + ".salvaged cannot be renamed", static_cast<Status>(errno));
  log_error("chkpt",
            "%s is damaged (%s) and is set aside as %s; starting with the %zu records that can be read",
            path.c_str(), why.c_str(), aside.c_str(), records);
  return kStatusOk;
}

// Why the file is left alone. The database is closed.
Status refuse(const std::string& path, const std::string& refusal, Status status) {
  if (refusal.empty() && status != EBUSY) return report(path, status);
  log_error("chkpt", "%s: %s", path.c_str(),
            (refusal.empty() ? sqlite::describe_lock(path) : refusal).c_str());
  return status;
}

}  // namespace

Status Database::open(const std::string& directory, std::unique_ptr<Database>* database, Contents* contents) {
  const std::string path = file_name(directory);
  if (const Status status = make_directory(directory)) return report(directory, status);
  if (!sqlite::finish_salvage(path))
    return report(path + ".salvaged cannot be renamed", static_cast<Status>(errno));
  for (bool is_new = false;; is_new = true) {
    auto opening = std::make_unique<Opening>(path);
    if (opening->open(contents)) {
      *database = opening->take();
      return kStatusOk;
    }
    const std::string why = opening->unusable;
    const std::string refusal = opening->refusal;
    const Status status = !refusal.empty()               ? kStatusNewerVersion
                          : opening->status == kStatusOk ? kStatusIo
                                                         : opening->status;
    const std::int64_t version = opening->version;
    opening.reset();  // closes the database
    if (why.empty() || is_new) return refuse(path, refusal, status);
    *contents = Contents{};
    if (const Status failed = replace(path, why, version)) return failed;
  }
}

}  // namespace chkpt
