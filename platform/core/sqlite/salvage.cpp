#include "platform/core/sqlite/salvage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/core/files/synchronize.h"
#include "platform/core/sqlite/database_file.h"

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

// Without its first page a database has no tables.
bool has_first_page(sqlite3* damaged, const Salvage& plan) {
  return std::ranges::all_of(plan.copies, [damaged](const RowCopy& copy) {
    const int code = primary(Statement().prepare(damaged, copy.select));
    return code == SQLITE_OK || code == SQLITE_ERROR;
  });
}

// A copy of the damaged database that begins with the first page of the new one, while that is empty: tables
// of the same schema begin at the same pages.
class CopyWithFirstPage {
 public:
  explicit CopyWithFirstPage(const std::string& file) : file_(file), copy_(file + ".copy") { remove(); }
  ~CopyWithFirstPage() { remove(); }
  CopyWithFirstPage(const CopyWithFirstPage&) = delete;
  CopyWithFirstPage& operator=(const CopyWithFirstPage&) = delete;

  const std::string& path() const { return copy_; }
  bool make(sqlite3* empty) const {
    return std::ranges::all_of(kSuffixes, [this](const char* suffix) { return copy_one(suffix); }) &&
           extend(empty) && replace_first_page(empty);
  }

 private:
  static constexpr std::array kSuffixes = {"", "-journal", "-wal"};

  bool copy_one(const char* suffix) const {
    std::error_code error;
    if (file_size(file_ + suffix) < 0) return true;
    return std::filesystem::copy_file(file_ + suffix, copy_ + suffix, error);
  }
  // SQLite reads no table of a schema that names a page beyond the end, and a former version had fewer
  // tables.
  bool extend(sqlite3* empty) const {
    sqlite3_int64 least = 0;
    sqlite3_file* const from = file_of(empty);
    if (from->pMethods->xFileSize(from, &least) != SQLITE_OK) return false;
    std::error_code error;
    if (file_size(copy_) < least)
      std::filesystem::resize_file(copy_, static_cast<std::uintmax_t>(least), error);
    return !error;
  }
  bool replace_first_page(sqlite3* empty) const {
    constexpr std::size_t kSizeIsValidAt = 95;  // else SQLite asks the system for the number of pages
    std::array<char, 4096> page;
    sqlite3_file* const from = file_of(empty);
    if (from->pMethods->xRead(from, page.data(), static_cast<int>(page.size()), 0) != SQLITE_OK) return false;
    page[kSizeIsValidAt] = static_cast<char>(page[kSizeIsValidAt] + 1);
    std::fstream copy(copy_, std::ios::binary | std::ios::in | std::ios::out);
    return bool(copy.write(page.data(), page.size()).flush());
  }
  void remove() const {
    for (const char* suffix : kSuffixes) std::remove((copy_ + suffix).c_str());
  }

  std::string file_;
  std::string copy_;
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

bool write_incomplete(const std::string& file, const Salvage& plan, std::size_t* rows) {
  CopyWithFirstPage copy(file);
  Connection damaged;
  Connection whole;
  if (open(incomplete_name(file), &whole) != SQLITE_OK || run(whole.get(), kWithoutJournal) != SQLITE_OK ||
      run(whole.get(), plan.make) != SQLITE_OK || !open_damaged(file, &damaged))
    return false;
  if (!has_first_page(damaged.get(), plan)) {
    damaged.reset();
    if (!copy.make(whole.get()) || !open_damaged(copy.path(), &damaged)) return false;
  }
  if (run(whole.get(), "BEGIN") != SQLITE_OK) return false;
  for (const RowCopy& each : plan.copies) *rows += copy_rows(damaged.get(), whole.get(), each);
  return run(whole.get(), plan.finish) == SQLITE_OK && run(whole.get(), "COMMIT") == SQLITE_OK &&
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
