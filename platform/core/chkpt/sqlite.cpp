// Binding fails only for parameters that a statement does not have, a programming error, so the result is not
// checked; stepping reports run-time errors.
#include "platform/core/chkpt/sqlite.h"

#include <cerrno>

namespace chkpt {

namespace {

struct CodeStatus {
  int code;  // primary
  Status status;
};

constexpr CodeStatus kStatuses[] = {
    {SQLITE_OK, kStatusOk},
    {SQLITE_ROW, kStatusOk},
    {SQLITE_DONE, kStatusOk},
    {SQLITE_FULL, ENOSPC},
    {SQLITE_READONLY, EROFS},
    {SQLITE_PERM, kStatusAccess},
    {SQLITE_BUSY, EBUSY},
    {SQLITE_LOCKED, EBUSY},
    {SQLITE_NOMEM, kStatusNoMemory},
    {SQLITE_TOOBIG, kStatusInvalid},
    {SQLITE_CONSTRAINT, kStatusExists},
};

int primary(int code) {
  return code & 0xff;
}

}  // namespace

Status status_of(sqlite3* connection, int code) {
  if (primary(code) == SQLITE_IOERR || primary(code) == SQLITE_CANTOPEN) {
    const int error = connection == nullptr ? 0 : sqlite3_system_errno(connection);
    return error > 0 ? static_cast<Status>(error) : kStatusIo;
  }
  for (const CodeStatus& entry : kStatuses) {
    if (entry.code == primary(code)) return entry.status;
  }
  return kStatusIo;
}

bool is_damage(int code) {
  return primary(code) == SQLITE_CORRUPT || primary(code) == SQLITE_NOTADB || code == SQLITE_IOERR_SHORT_READ;
}

int run(sqlite3* connection, const char* sql) {
  return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

int Statement::prepare(sqlite3* connection, const char* sql) {
  sqlite3_stmt* made = nullptr;
  const int code = sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &made, nullptr);
  statement_.reset(made);
  return code;
}

void Statement::bind(int place, std::uint64_t value) {
  sqlite3_bind_int64(statement_.get(), place, static_cast<sqlite3_int64>(value));
}

// An empty view may have a null pointer, which SQLite would take for NULL.
void Statement::bind_octets(int place, std::string_view octets) {
  const char* const data = octets.empty() ? "" : octets.data();
  sqlite3_bind_blob64(statement_.get(), place, data, octets.size(), nullptr);
}

void Statement::bind_text(int place, std::string_view text) {
  sqlite3_bind_text64(statement_.get(), place, text.empty() ? "" : text.data(), text.size(), nullptr,
                      SQLITE_UTF8);
}

std::string Statement::octets(int column) {
  const void* const data = sqlite3_column_blob(statement_.get(), column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return size == 0 ? std::string() : std::string(static_cast<const char*>(data), size);
}

int Statement::finish() {
  const int code = step();
  reset();
  return code == SQLITE_DONE || code == SQLITE_ROW ? SQLITE_OK : code;
}

}  // namespace chkpt
