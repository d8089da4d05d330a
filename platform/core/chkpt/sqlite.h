// SQLite: a connection and prepared statements that release themselves, and its result codes as statuses.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"

namespace chkpt {

struct ConnectionClose {
  void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
};
using Connection = std::unique_ptr<sqlite3, ConnectionClose>;

// The status of an extended result code of this connection: the operating system's error if it is known,
// otherwise the closest errno value. SQLITE_OK, SQLITE_ROW and SQLITE_DONE are kStatusOk.
Status status_of(sqlite3* connection, int code);
// Whether the code reports damaged contents of the file, rather than an error of the system.
bool is_damage(int code);
// Executes statements without parameters; returns SQLite's extended code.
int run(sqlite3* connection, const char* sql);

// A prepared statement. Use: reset, bind by number from 1, step.
class Statement {
 public:
  // Returns SQLite's extended code. An SQL error here means that the database lacks the expected tables.
  int prepare(sqlite3* connection, const char* sql);
  void reset() { sqlite3_reset(statement_.get()); }
  int step() { return sqlite3_step(statement_.get()); }
  void bind(int place, std::uint64_t value);
  // The octets must live until the next reset.
  void bind_octets(int place, std::string_view octets);
  void bind_text(int place, std::string_view text);

  std::int64_t integer(int column) { return sqlite3_column_int64(statement_.get(), column); }
  bool is_blob(int column) { return sqlite3_column_type(statement_.get(), column) == SQLITE_BLOB; }
  std::string octets(int column);  // of a blob or a text
  // For a statement that writes one row or none: steps and resets. Returns SQLITE_OK or the extended code.
  int finish();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace chkpt
