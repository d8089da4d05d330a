// The writes of the checkpoint database. Statements of every record are prepared once; those of a
// registration are not. Opening is in opening.cpp.
#include "platform/core/chkpt/database.h"

#include "platform/core/base/log.h"
#include "platform/core/sqlite/row_checksum.h"

namespace chkpt {

namespace {

constexpr int kPagesOfLog = 1000;  // after which a commit writes it back; the default of SQLite

}  // namespace

const char Database::kSynchronous[] = "PRAGMA synchronous=FULL";

Record* add(Records* records, std::uint64_t object_id, std::string_view key) {
  auto& by_id = records->by_id;
  const auto at = by_id.emplace_hint(by_id.end(), object_id, Record{std::string(key), {}});
  if (records->ids.emplace(at->second.key, object_id).second) return &at->second;
  by_id.erase(at);
  return nullptr;
}

std::int64_t checksum_of(std::uint64_t object_id, const TableName& table, std::string_view key,
                         std::string_view data) {
  return sqlite::RowChecksum()
      .integer(object_id)
      .integer(table.application)
      .integer(table.table_id)
      .blob(key)
      .blob(data)
      .result();
}

void Database::checkpoint_log_on_close() {
  sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

Status Database::result(int code) {
  if (code == SQLITE_OK) return kStatusOk;
  return sqlite::status_of(connection_.get(), sqlite3_extended_errcode(connection_.get()));
}

Status Database::begin() {
  return result(begin_.finish());
}

Status Database::commit() {
  return result(commit_.finish());
}

// SQLite has rolled back by itself after some failures; what remains open is closed here.
void Database::roll_back() {
  if (sqlite3_get_autocommit(connection_.get()) != 0) return;
  if (sqlite::run(connection_.get(), "ROLLBACK") != SQLITE_OK) {
    log_error("chkpt", "a transaction cannot be rolled back: %s", sqlite3_errmsg(connection_.get()));
  }
}

int Database::write_application(std::uint32_t number, std::string_view name) {
  sqlite::Statement put(connection_.get(),
                        "INSERT INTO application(number, name, starts) VALUES(?1, ?2, 1)"
                        " ON CONFLICT(number) DO UPDATE SET name = ?2, starts = starts + 1");
  put.bind(1, number);
  put.bind_text(2, name);
  return put.finish();
}

// A log that has become long is not written back meanwhile: without synchronization a power cut would lose
// commits that it has.
Status Database::put_application(std::uint32_t number, std::string_view name) {
  const Status prepared = result(sqlite::run(connection_.get(), "PRAGMA synchronous=OFF"));
  if (prepared != kStatusOk) return prepared;
  sqlite3_wal_autocheckpoint(connection_.get(), 0);
  const Status written = result(write_application(number, name));
  sqlite3_wal_autocheckpoint(connection_.get(), kPagesOfLog);
  const Status restored = result(sqlite::run(connection_.get(), kSynchronous));
  return written != kStatusOk ? written : restored;
}

Status Database::put(sqlite::Statement* statement, std::span<const RecordRow> records) {
  int place = 0;
  for (const RecordRow& record : records) {
    statement->bind(++place, record.object_id);
    statement->bind(++place, record.table.application);
    statement->bind(++place, record.table.table_id);
    statement->bind_octets(++place, record.key);
    statement->bind_octets(++place, record.data);
    statement->bind(++place, checksum_of(record.object_id, record.table, record.key, record.data));
  }
  return result(statement->finish());
}

Status Database::put_records(std::span<const RecordRow> records) {
  while (!records.empty()) {
    const bool are_many = records.size() >= kRowsOfStatement;
    const std::size_t count = are_many ? kRowsOfStatement : 1;
    if (const Status status = put(are_many ? &put_many_ : &put_one_, records.first(count))) return status;
    records = records.subspan(count);
  }
  return kStatusOk;
}

Status Database::delete_record(std::uint64_t object_id) {
  delete_.bind(1, object_id);
  return result(delete_.finish());
}

}  // namespace chkpt
