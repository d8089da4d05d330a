// SQLite: a connection and prepared statements that release themselves, and result codes as statuses.
//
// Codes are SQLite's extended result codes. A connection and its statements belong to one thread at a time.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"

namespace sqlite {

struct ConnectionClose {
  void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
};
using Connection = std::unique_ptr<sqlite3, ConnectionClose>;

// How long an operation waits for a lock of another process. Tests shorten it.
extern std::chrono::milliseconds busy_timeout;

// Opens the file for reading and writing, creating it if it is missing, and makes it private
// (private_files.h): SQLITE_PERM if it cannot be. The connection has the function row_checksum
// (row_checksum.h). ":memory:" is a database in memory.
int open(const std::string& path, Connection* connection);
// Locks the database for as long as it is open: another process can neither read it nor delay a transaction.
int lock_for_this_process(sqlite3* connection);
// Executes statements without parameters.
int run(sqlite3* connection, const char* sql);

inline int primary(int code) {
  return code & 0xff;
}
// The status of a code of this connection (may be null): the operating system's error if it is known,
// otherwise the closest errno value. SQLITE_OK, SQLITE_ROW and SQLITE_DONE are kStatusOk.
Status status_of(sqlite3* connection, int code);

// Why the call failed, for people: the operating system's error if it is known, otherwise SQLite's message.
std::string reason_of(sqlite3* connection, int code);

// A prepared statement. Use: bind by number from 1, step; reset before the next use. All calls of a statement
// that could not be prepared fail with SQLITE_MISUSE, so it is enough to check the last one.
class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* connection, const char* sql) { static_cast<void>(prepare(connection, sql)); }
  // An SQL error here means that the database lacks the expected tables.
  int prepare(sqlite3* connection, const char* sql);
  explicit operator bool() const { return statement_ != nullptr; }

  void reset() { sqlite3_reset(statement_.get()); }
  int step() { return sqlite3_step(statement_.get()); }
  // For a statement that writes one row or none: steps and resets. SQLITE_OK or the code of the failure.
  int finish();

  void bind(int place, std::integral auto value) { bind_integer(place, static_cast<std::int64_t>(value)); }
  void bind_null(int place) { sqlite3_bind_null(statement_.get(), place); }
  // Octets and texts must remain valid until the next reset.
  void bind_octets(int place, std::span<const std::uint8_t> octets);
  void bind_octets(int place, std::string_view octets);
  void bind_text(int place, std::string_view text);

  void bind_column(int place, Statement& from, int column);

  // Columns of the current row, from 0; views are valid until the next step or reset.
  int columns() { return sqlite3_column_count(statement_.get()); }
  int type(int column) { return sqlite3_column_type(statement_.get(), column); }
  bool is_blob(int column) { return type(column) == SQLITE_BLOB; }
  std::int64_t integer(int column) { return sqlite3_column_int64(statement_.get(), column); }
  std::string_view text(int column);
  std::span<const std::uint8_t> blob(int column);
  std::string octets(int column);  // of a blob or a text

 private:
  void bind_integer(int place, std::int64_t value) { sqlite3_bind_int64(statement_.get(), place, value); }

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// A blob of a row, read in parts. All reads of a blob that could not be opened fail with SQLITE_MISUSE.
class Blob {
 public:
  Blob(sqlite3* connection, const char* table, const char* column, std::int64_t row);
  explicit operator bool() const { return blob_ != nullptr; }
  // Replaces *octets with the part. SQLITE_OK or a code; SQLITE_ERROR beyond the end.
  int read(std::size_t start, std::size_t size, std::vector<std::uint8_t>* octets);

 private:
  struct Close {
    void operator()(sqlite3_blob* blob) const { sqlite3_blob_close(blob); }
  };
  std::unique_ptr<sqlite3_blob, Close> blob_;
};

}  // namespace sqlite
