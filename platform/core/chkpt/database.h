// The checkpoint database file: its tables, opening it safely, and the writes of one transaction. Not for
// other folders.
//
//   application   number, name, starts (how often a process opened the database for it)
//   record_table  an application's tables with their descriptors
//   record        object id, table, key, data
//
// The file is locked for as long as it is open, so that two processes cannot both believe to own its
// contents.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/chkpt/chkpt.h"
#include "platform/core/chkpt/sqlite.h"

namespace chkpt {

struct StoredTable {
  std::uint64_t row = 0;  // names the table in `record`
  std::uint32_t application = 0;
  std::uint32_t table_id = 0;
  ChkptTableDescriptor descriptor{};
};

struct StoredRecord {
  std::uint64_t object_id = 0;
  std::string key;
  std::string data;
};

// What a database held when it was opened.
struct Contents {
  std::map<std::uint32_t, std::string> applications;  // names by number
  std::vector<StoredTable> tables;
  std::map<std::uint64_t, std::vector<StoredRecord>> records;  // by table row, in object-id order
  std::uint64_t last_object_id = 0;                            // the highest ever given out
};

class Database {
 public:
  // Opens STATE_DIRECTORY/checkpoint.db, making directory and file where they are missing. What cannot be
  // used is set aside and a new file made. On failure the file is as it was, and the log says what failed.
  [[nodiscard]] static Status open(const std::string& directory, std::unique_ptr<Database>* database,
                                   Contents* contents);
  // Folds the log into the file, which every close does when this was called before it.
  void fold_log_on_close();

  // A transaction. A failed operation fails the transaction: call roll_back().
  [[nodiscard]] Status begin();
  [[nodiscard]] Status commit();
  void roll_back();
  // Also counts the start, so that it always writes something.
  [[nodiscard]] Status put_application(std::uint32_t number, std::string_view name);
  [[nodiscard]] Status put_table(StoredTable* table);  // sets the row
  [[nodiscard]] Status insert_record(std::uint64_t table_row, const StoredRecord& record);
  [[nodiscard]] Status update_record(std::uint64_t object_id, std::string_view data);
  [[nodiscard]] Status delete_record(std::uint64_t object_id);

 private:
  friend class Opening;
  Status result(int code);

  Connection connection_;
  Statement begin_;
  Statement commit_;
  Statement insert_;
  Statement update_;
  Statement delete_;
};

}  // namespace chkpt
