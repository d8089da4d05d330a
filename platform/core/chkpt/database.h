// The checkpoint database file (format.h): opening it safely, and the writes of one transaction. Only for
// this folder. The file is locked while it is open, so that no two processes use it.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/core/chkpt/chkpt.h"
#include "platform/core/sqlite/quarantine.h"
#include "platform/core/sqlite/sqlite.h"

namespace chkpt {

struct TableName {
  std::uint32_t application = 0;
  std::uint32_t table_id = 0;
  auto operator<=>(const TableName&) const = default;
};

struct Record {
  std::string key;
  std::string data;
  bool unwritten = false;  // the next commit has to write it
};

// The records of a table by object id, and the object ids by key. Keys are those of the records.
struct Records {
  std::map<std::uint64_t, Record> by_id;
  absl::flat_hash_map<std::string_view, std::uint64_t> ids;
  std::uint64_t deletions = 0;  // places in by_id are valid as long as this is the same
};

// Null for a key that a record has.
Record* add(Records* records, std::uint64_t object_id, std::string_view key);

// A record as the database has it.
struct RecordRow {
  std::uint64_t object_id;
  TableName table;
  std::string key;
  std::string data;
};

// What the row stores of its other columns.
std::int64_t checksum_of(std::uint64_t object_id, const TableName& table, std::string_view key,
                         std::string_view data);

// The contents of a database when it was opened.
struct Contents {
  std::map<std::uint32_t, std::string> applications;  // names by number
  std::map<TableName, Records> records;
  std::uint64_t last_object_id = 0;  // the highest ever assigned
  sqlite::Quarantine quarantine;
};

// A statement with several rows costs less than half of as many statements.
inline constexpr std::size_t kRowsOfStatement = 32;

class Database {
 public:
  static std::string file_name(const std::string& directory) { return directory + "/checkpoint.db"; }
  // Opens STATE_DIRECTORY/checkpoint.db and creates directory and file if they are missing. An unusable
  // database is renamed and a new one created, with the records that can be read in a damaged one. On failure
  // the file is unchanged and the log states the reason.
  [[nodiscard]] static Status open(const std::string& directory, std::unique_ptr<Database>* database,
                                   Contents* contents);
  const char* name() const { return sqlite3_db_filename(connection_.get(), "main"); }  // its path
  // From now on closing writes the log back into the file.
  void checkpoint_log_on_close();

  // A transaction. A failed operation fails the transaction: call roll_back().
  [[nodiscard]] Status begin();
  [[nodiscard]] Status commit();
  void roll_back();
  // Corrects the name and counts the start, so that every start writes a row. Does not wait for the disk: the
  // next commit does.
  [[nodiscard]] Status put_application(std::uint32_t number, std::string_view name);
  // Inserts the records, or replaces those that exist.
  [[nodiscard]] Status put_records(std::span<const RecordRow> records);
  [[nodiscard]] Status delete_record(std::uint64_t object_id);

 private:
  friend class Opening;
  static const char kSynchronous[];  // how commits are written

  Status result(int code);
  int write_application(std::uint32_t number, std::string_view name);
  // Puts as many records as the statement has rows.
  Status put(sqlite::Statement* statement, std::span<const RecordRow> records);

  sqlite::Connection connection_;
  sqlite::Statement begin_;
  sqlite::Statement commit_;
  sqlite::Statement put_one_;
  sqlite::Statement put_many_;
  sqlite::Statement delete_;
};

}  // namespace chkpt
