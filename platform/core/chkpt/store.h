// The store and its commits. Only for this folder.
//
// A change marks the record (`unwritten`); a deleted record is added to `deleted`. A commit takes all of
// them; if it fails it returns them, so that nothing is lost, and a record that changes several times in
// between is written once.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/core/chkpt/chkpt.h"
#include "platform/core/chkpt/commit.h"
#include "platform/core/chkpt/database.h"
#include "platform/core/evm/worker.h"

struct ChkptTable {
  ChkptTableDescriptor descriptor{};
  chkpt::TableName name;  // in the database
  chkpt::Records records;
};

namespace chkpt {

struct RecordRef {
  ChkptTable* table;
  std::uint64_t object_id;
};

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
// Why the last chkpt_init() could not open the database.
Status& opening_failure();

void mark_unwritten(Store* store, const RecordRef& ref, Record* record);
void mark_deleted(Store* store, std::uint64_t object_id);
// Writes what is pending before it returns. The commits of the worker have ended.
Status commit_at_once(Store* store);

}  // namespace chkpt
