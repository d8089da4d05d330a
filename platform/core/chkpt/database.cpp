// The writes of the checkpoint database. Statements of every record are prepared once; those of a
// registration are not. Opening is in opening.cpp.
#include "platform/core/chkpt/database.h"

#include "platform/core/base/log.h"
#include "platform/core/sqlite/row_checksum.h"

namespace chkpt {

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

Status Database::put_application(std::uint32_t number, std::string_view name) {
  sqlite::Statement put;
  const int code = put.prepare(connection_.get(),
                               "INSERT INTO application(number, name, starts) VALUES(?1, ?2, 1)"
                               " ON CONFLICT(number) DO UPDATE SET name = ?2, starts = starts + 1");
  if (code != SQLITE_OK) return result(code);
  put.bind(1, number);
  put.bind_text(2, name);
  return result(put.finish());
}

// The checksum of an update is that of the record in memory: it differs if the rest of the row is damaged.
Status Database::put_record(const TableName& table, const RecordView& record, bool exists) {
  sqlite::Statement& put = exists ? update_ : insert_;
  put.bind(1, record.object_id);
  put.bind_octets(2, record.data);
  put.bind(3, sqlite::RowChecksum()
                  .integer(record.object_id)
                  .integer(table.application)
                  .integer(table.table_id)
                  .blob(record.key)
                  .blob(record.data)
                  .result());
  if (!exists) {
    put.bind(4, table.application);
    put.bind(5, table.table_id);
    put.bind_octets(6, record.key);
  }
  return result(put.finish());
}

Status Database::delete_record(std::uint64_t object_id) {
  delete_.bind(1, object_id);
  return result(delete_.finish());
}

}  // namespace chkpt
