// SQLite's handles as owned objects, for the files of the configuration. Only for this folder.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string_view>

namespace kvtree {

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// Returns null, with the code in the database, for an invalid statement. Every sqlite3_* function below
// returns SQLITE_MISUSE for null, so a failure may be checked after the last of them.
inline Statement prepare(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
  return Statement(statement);
}

// The text must not change until the statement has run.
inline void bind_text(const Statement& statement, int place, std::string_view text) {
  // SQLite treats a null pointer as NULL, and an empty view may have one.
  const char* octets = text.data() == nullptr ? "" : text.data();
  sqlite3_bind_text64(statement.get(), place, octets, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

inline void bind_blob(const Statement& statement, int place, const void* octets, std::size_t size) {
  sqlite3_bind_blob64(statement.get(), place, size == 0 ? "" : octets, size, SQLITE_STATIC);
}

inline std::string_view column_text(const Statement& statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
  return {text == nullptr ? "" : text,
          static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column))};
}

}  // namespace kvtree
