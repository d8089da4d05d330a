// Binding fails only for parameters that a statement does not have, a programming error, so the result is not
// checked; stepping reports run-time errors.
#include "platform/core/sqlite/sqlite.h"

#include <unistd.h>

#include <cerrno>

#include "platform/core/files/private_files.h"
#include "platform/core/sqlite/row_checksum.h"

namespace sqlite {

std::chrono::milliseconds busy_timeout{5000};

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

constexpr std::string_view kInMemory = ":memory:";

// A journal or log of a former process may have other permissions than its database.
Status prepare_files(const std::string& path) {
  for (const char* suffix : {"", "-journal", "-wal"}) {
    const bool is_companion = *suffix != '\0';
    if (is_companion && access((path + suffix).c_str(), F_OK) != 0) continue;
    if (const Status status = prepare_private_file(path + suffix)) return status;
  }
  return kStatusOk;
}

// Codes with which the operating system's error is stored.
bool is_of_a_file(int code) {
  return primary(code) == SQLITE_IOERR || primary(code) == SQLITE_CANTOPEN;
}

// SQLite treats a null pointer as NULL, and an empty view may have one.
template <typename Octet>
const Octet* not_null(const Octet* octets) {
  static constexpr Octet kNone{};
  return octets == nullptr ? &kNone : octets;
}

}  // namespace

int open(const std::string& path, Connection* connection) {
  // SQLite meets other failures itself and reports them.
  if (path != kInMemory && prepare_files(path) == kStatusAccess) return SQLITE_PERM;
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(
      path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_EXRESCODE, nullptr);
  connection->reset(opened);
  if (code != SQLITE_OK) return code;
  if (const int failed = define_row_checksum(opened)) return failed;
  return sqlite3_busy_timeout(opened, static_cast<int>(busy_timeout.count()));
}

int lock_for_this_process(sqlite3* connection) {
  return run(connection, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT");
}

int run(sqlite3* connection, const char* sql) {
  return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

Status status_of(sqlite3* connection, int code) {
  if (is_of_a_file(code)) {
    const int error = sqlite3_system_errno(connection);
    return error > 0 ? static_cast<Status>(error) : kStatusIo;
  }
  for (const CodeStatus& entry : kStatuses) {
    if (entry.code == primary(code)) return entry.status;
  }
  return kStatusIo;
}

std::string reason_of(sqlite3* connection, int code) {
  const bool has_errno = is_of_a_file(code) && sqlite3_system_errno(connection) > 0;
  if (has_errno || primary(code) == SQLITE_FULL) return err_text(status_of(connection, code));
  const bool is_latest = connection != nullptr && sqlite3_extended_errcode(connection) == code;
  return is_latest ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
}

int Statement::prepare(sqlite3* connection, const char* sql) {
  sqlite3_stmt* made = nullptr;
  const int code = sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &made, nullptr);
  statement_.reset(made);
  return code;
}

int Statement::finish() {
  const int code = step();
  reset();
  return code == SQLITE_DONE || code == SQLITE_ROW ? SQLITE_OK : code;
}

void Statement::bind_octets(int place, std::span<const std::uint8_t> octets) {
  sqlite3_bind_blob64(statement_.get(), place, not_null(octets.data()), octets.size(), SQLITE_STATIC);
}

void Statement::bind_octets(int place, std::string_view octets) {
  sqlite3_bind_blob64(statement_.get(), place, not_null(octets.data()), octets.size(), SQLITE_STATIC);
}

void Statement::bind_text(int place, std::string_view text) {
  sqlite3_bind_text64(statement_.get(), place, not_null(text.data()), text.size(), SQLITE_STATIC,
                      SQLITE_UTF8);
}

void Statement::bind_column(int place, Statement& from, int column) {
  sqlite3_bind_value(statement_.get(), place, sqlite3_column_value(from.statement_.get(), column));
}

std::string_view Statement::text(int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return {not_null(text), size};
}

std::span<const std::uint8_t> Statement::blob(int column) {
  const auto* octets = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_.get(), column));
  return {octets, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

std::string Statement::octets(int column) {
  const std::span<const std::uint8_t> octets = blob(column);
  return {octets.begin(), octets.end()};
}

Blob::Blob(sqlite3* connection, const char* table, const char* column, std::int64_t row) {
  sqlite3_blob* opened = nullptr;
  if (sqlite3_blob_open(connection, "main", table, column, row, 0, &opened) == SQLITE_OK) blob_.reset(opened);
}

int Blob::read(std::size_t start, std::size_t size, std::vector<std::uint8_t>* octets) {
  octets->resize(size);
  return sqlite3_blob_read(blob_.get(), octets->data(), static_cast<int>(size), static_cast<int>(start));
}

}  // namespace sqlite
