// The writes of the checkpoint database. Statements of every record are prepared once; those of a
// registration are not. Opening is in opening.cpp.
#include "platform/core/chkpt/database.h"

#include "platform/core/base/log.h"

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

Status Database::put_table(StoredTable* table) {
  sqlite::Statement put;
  const int code = put.prepare(
      connection_.get(),
      "INSERT INTO record_table(application, table_id, key_kind, versioned, record_size, persistent, "
      "reserved)"
      " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7) ON CONFLICT(application, table_id) DO UPDATE SET key_kind = ?3,"
      " versioned = ?4, record_size = ?5, persistent = ?6, reserved = ?7 RETURNING row");
  if (code != SQLITE_OK) return result(code);
  const ChkptTableDescriptor& descriptor = table->descriptor;
  int place = 0;
  for (const std::uint32_t value :
       {table->application, table->table_id, descriptor.key_kind, descriptor.versioned,
        descriptor.record_size, descriptor.persistent, descriptor.reserved}) {
    put.bind(++place, value);
  }
  const int stepped = put.step();
  if (stepped != SQLITE_ROW) return result(stepped);
  table->row = static_cast<std::uint64_t>(put.integer(0));
  return result(put.finish());
}

Status Database::insert_record(std::uint64_t table_row, const StoredRecord& record) {
  insert_.bind(1, record.object_id);
  insert_.bind(2, table_row);
  insert_.bind_octets(3, record.key);
  insert_.bind_octets(4, record.data);
  return result(insert_.finish());
}

Status Database::update_record(std::uint64_t object_id, std::string_view data) {
  update_.bind(1, object_id);
  update_.bind_octets(2, data);
  return result(update_.finish());
}

Status Database::delete_record(std::uint64_t object_id) {
  delete_.bind(1, object_id);
  return result(delete_.finish());
}

}  // namespace chkpt
