#include "platform/core/sqlite/salvage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/core/files/synchronize.h"
#include "platform/core/sqlite/database_file.h"
#include "platform/core/sqlite/schema.h"

namespace sqlite {

namespace {

std::string salvaged_name(const std::string& file) {
  return file + ".salvaged";
}

// What a start uses has this name only when it is complete.
std::string incomplete_name(const std::string& file) {
  return file + ".incomplete";
}

// An incomplete file is never used, so nothing needs to be on the disk before the end.
constexpr char kWithoutJournal[] = "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF";

sqlite3_file* file_of(sqlite3* connection) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return file;
}

bool synchronize(sqlite3* connection) {
  sqlite3_file* const file = file_of(connection);
  return file->pMethods->xSync(file, SQLITE_SYNC_FULL) == SQLITE_OK;
}

// With its lock, SQLite needs no shared memory for a log, and does not write the log back when it closes.
bool open_damaged(const std::string& file, Connection* damaged) {
  return open(file, damaged) == SQLITE_OK &&
         sqlite3_db_config(damaged->get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr) == SQLITE_OK &&
         run(damaged->get(), "PRAGMA locking_mode=EXCLUSIVE; PRAGMA trusted_schema=OFF") == SQLITE_OK;
}

// A copy of the damaged database, which may be changed so that it can be read.
class Copy {
 public:
  explicit Copy(const std::string& file) : file_(file), copy_(file + ".copy") {}
  ~Copy() { remove(); }
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;

  const std::string& path() const { return copy_; }
  bool make() const {
    remove();
    return std::ranges::all_of(kSuffixes, [this](const char* suffix) { return copy_one(suffix); });
  }

 private:
  static constexpr std::array kSuffixes = {"", "-journal", "-wal"};

  bool copy_one(const char* suffix) const {
    std::error_code error;
    if (file_size(file_ + suffix) < 0) return true;
    return std::filesystem::copy_file(file_ + suffix, copy_ + suffix, error);
  }
  void remove() const {
    for (const char* suffix : kSuffixes) std::remove((copy_ + suffix).c_str());
  }

  std::string file_;
  std::string copy_;
};

// The first page of a new database: tables of the same schema begin at the same pages.
class FirstPage {
 public:
  bool read(sqlite3* empty) {
    sqlite3_file* const from = file_of(empty);
    if (from->pMethods->xFileSize(from, &least_) != SQLITE_OK ||
        from->pMethods->xRead(from, page_.data(), static_cast<int>(page_.size()), 0) != SQLITE_OK)
      return false;
    constexpr std::size_t kSizeIsValidAt = 95;  // else SQLite asks the system for the number of pages
    page_[kSizeIsValidAt] = static_cast<char>(page_[kSizeIsValidAt] + 1);
    return true;
  }
  // SQLite reads no table of a schema that names a page beyond the end, and a former version had fewer
  // tables.
  bool replace(const std::string& file) const {
    std::error_code error;
    if (file_size(file) < least_)
      std::filesystem::resize_file(file, static_cast<std::uintmax_t>(least_), error);
    std::fstream copy(file, std::ios::binary | std::ios::in | std::ios::out);
    return !error && bool(copy.write(page_.data(), std::ssize(page_)).flush());
  }

 private:
  sqlite3_int64 least_ = 0;
  std::array<char, 4096> page_{};
};

std::size_t copy_rows(sqlite3* damaged, sqlite3* to, const RowCopy& copy) {
  Statement put(to, copy.insert);
  std::size_t copied = 0;
  for (const char* sql : {copy.select, copy.select_backwards}) {
    Statement rows(damaged, sql);
    int code = SQLITE_ROW;
    while ((code = rows.step()) == SQLITE_ROW) {
      for (int column = 0; column < rows.columns(); ++column) put.bind_column(column + 1, rows, column);
      if (put.finish() == SQLITE_OK) copied += static_cast<std::size_t>(sqlite3_changes(to));
    }
    if (code == SQLITE_DONE) break;  // there is nothing beyond the damage
  }
  return copied;
}

// What the worst of the selections says: SQLITE_OK; SQLITE_ERROR if the schema lacks a table or column;
// another code without the first page, which has the schema.
int check_selections(sqlite3* damaged, const Salvage& plan) {
  int worst = SQLITE_OK;
  for (const RowCopy& copy : plan.copies) {
    const int code = primary(Statement().prepare(damaged, copy.select));
    if (worst == SQLITE_OK || worst == SQLITE_ERROR) worst = code == SQLITE_OK ? worst : code;
  }
  return worst;
}

// The rows that the schema of `damaged` finds. Returns what check_selections() returns.
int copy_all(sqlite3* damaged, sqlite3* to, const Salvage& plan, std::size_t* rows) {
  const int code = check_selections(damaged, plan);
  if (code != SQLITE_OK && code != SQLITE_ERROR) return code;
  for (const RowCopy& each : plan.copies) *rows += copy_rows(damaged, to, each);
  return code;
}

// With the tables as the new database states them: without its primary key a table has other columns. True if
// nothing else needs to be read.
bool copy_with_tables(const Copy& copy, sqlite3* to, const Salvage& plan, std::size_t* rows) {
  Connection damaged;
  return copy.make() && open_damaged(copy.path(), &damaged) && set_tables(damaged.get(), to) == SQLITE_OK &&
         copy_all(damaged.get(), to, plan, rows) == SQLITE_OK;
}

bool copy_with_first_page(const Copy& copy, const FirstPage& first, sqlite3* to, const Salvage& plan,
                          std::size_t* rows) {
  Connection damaged;
  if (!copy.make() || !first.replace(copy.path()) || !open_damaged(copy.path(), &damaged)) return false;
  copy_all(damaged.get(), to, plan, rows);
  return true;
}

// A row that was copied before is ignored.
bool copy_what_is_found(const std::string& file, const FirstPage& first, sqlite3* to, const Salvage& plan,
                        std::size_t* rows) {
  const Copy copy(file);
  Connection damaged;
  if (!open_damaged(file, &damaged)) return false;
  const int code = copy_all(damaged.get(), to, plan, rows);
  if (code == SQLITE_OK && has_tables_of(damaged.get(), to)) return true;
  damaged.reset();
  const bool has_schema = code == SQLITE_OK || code == SQLITE_ERROR;
  return (has_schema && copy_with_tables(copy, to, plan, rows)) ||
         copy_with_first_page(copy, first, to, plan, rows);
}

bool write_incomplete(const std::string& file, const Salvage& plan, std::size_t* rows) {
  Connection whole;
  FirstPage first;
  return open(incomplete_name(file), &whole) == SQLITE_OK && run(whole.get(), kWithoutJournal) == SQLITE_OK &&
         run(whole.get(), plan.make) == SQLITE_OK && first.read(whole.get()) &&
         run(whole.get(), "BEGIN") == SQLITE_OK && copy_what_is_found(file, first, whole.get(), plan, rows) &&
         run(whole.get(), plan.finish) == SQLITE_OK && run(whole.get(), "COMMIT") == SQLITE_OK &&
         synchronize(whole.get());
}

}  // namespace

// The damaged file is renamed next: without the durable name a start after a power cut would find neither.
bool salvage(const std::string& file, const Salvage& plan, std::size_t* rows) {
  remove_salvaged(file);
  if (file_size(file) <= 0) return true;
  if (write_incomplete(file, plan, rows) &&
      rename_durably(incomplete_name(file), salvaged_name(file)) == kStatusOk)
    return true;
  remove_salvaged(file);
  return false;
}

void remove_salvaged(const std::string& file) {
  for (const std::string& name : {salvaged_name(file), incomplete_name(file)}) {
    for (const char* suffix : {"", "-journal"}) std::remove((name + suffix).c_str());
  }
}

bool use_salvaged(const std::string& file) {
  if (file_size(file + "-wal") >= 0 && set_aside(file).empty()) return false;
  const Status status = rename_durably(salvaged_name(file), file);
  errno = static_cast<int>(status);
  return status == kStatusOk;
}

bool finish_salvage(const std::string& file) {
  return file_size(file) >= 0 || file_size(salvaged_name(file)) <= 0 || use_salvaged(file);
}

}  // namespace sqlite
