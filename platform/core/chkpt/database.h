// The checkpoint database file (format.h): opening it safely, and the writes of one transaction. Only for
// this folder. The file is locked while it is open, so that no two processes use it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/chkpt/chkpt.h"
#include "platform/core/sqlite/sqlite.h"

namespace chkpt {

struct TableName {
  std::uint32_t application = 0;
  std::uint32_t table_id = 0;
  auto operator<=>(const TableName&) const = default;
};

struct StoredRecord {
  std::uint64_t object_id = 0;
  std::string key;
  std::string data;
};

struct RecordView {
  std::uint64_t object_id;
  std::string_view key;
  std::string_view data;
};

// The contents of a database when it was opened.
struct Contents {
  std::map<std::uint32_t, std::string> applications;       // names by number
  std::map<TableName, std::vector<StoredRecord>> records;  // in object-id order
  std::uint64_t last_object_id = 0;                        // the highest ever assigned
};

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
  // Corrects the name and counts the start, so that every start writes a row.
  [[nodiscard]] Status put_application(std::uint32_t number, std::string_view name);
  // Inserts the record, or updates the data of one that exists.
  [[nodiscard]] Status put_record(const TableName& table, const RecordView& record, bool exists);
  [[nodiscard]] Status delete_record(std::uint64_t object_id);

 private:
  friend class Opening;
  Status result(int code);

  sqlite::Connection connection_;
  sqlite::Statement begin_;
  sqlite::Statement commit_;
  sqlite::Statement insert_;
  sqlite::Statement update_;
  sqlite::Statement delete_;
};

}  // namespace chkpt
