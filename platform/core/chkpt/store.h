// The store and its commits. Only for this folder.
//
// A table has its records by object id and the object ids by key. A change marks the record (`unwritten`); a
// deleted record that the database may have is added to `deleted`. A commit takes all of them; if it fails it
// returns them, so that nothing is lost, and a record that changes several times in between is written once.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/core/chkpt/chkpt.h"
#include "platform/core/chkpt/commit.h"
#include "platform/core/chkpt/database.h"
#include "platform/core/evm/worker.h"

struct ChkptTable {
  struct Record {
    std::string key;
    std::string data;
    bool stored = false;     // the database has the record, at the latest after the commit that is being made
    bool unwritten = false;  // the next commit has to write it
  };

  ChkptTableDescriptor descriptor{};
  chkpt::TableName name;  // in the database
  std::map<std::uint64_t, Record> records;
  std::unordered_map<std::string, std::uint64_t> object_ids;  // by key
};

namespace chkpt {

struct Store {
  explicit Store(EventManager* its_manager) : manager(its_manager), worker(its_manager) {}

  std::uint32_t application = 0;
  EventManager* manager;
  std::unique_ptr<Database> database;
  Contents contents;  // of the tables that are not registered
  std::vector<std::unique_ptr<ChkptTable>> tables;
  std::uint64_t next_object_id = 1;
  std::vector<RecordRef> unwritten;
  std::vector<std::uint64_t> deleted;
  std::vector<ChkptPrepare> preparations;  // for the next commit
  bool flush_posted = false;
  bool is_committing = false;  // on the worker
  Status failure = kStatusOk;  // of the last commit
  EventTimerId retry = 0;
  EventTimerId slow = 0;  // of the commit on the worker
  EventWorker worker;     // ends first: it uses the database
};

// Null while no store is open.
std::unique_ptr<Store>& the_store();

void mark_unwritten(Store* store, const RecordRef& ref, ChkptTable::Record* record);
void mark_deleted(Store* store, std::uint64_t object_id);
// Writes what is pending before it returns. The commits of the worker have ended.
Status commit_at_once(Store* store);

}  // namespace chkpt
